// The shared library as a program meets it: loading, unloading, the end of the program.
#include "loaded.h"
#include "log_world.h"

using support::Loaded;
using support::LogWorld;
using support::RunAlone;

namespace {

constexpr const char* Created = "CLOG - Logging module successfully created\n";
constexpr const char* Deleted = "CLOG - Logging module successfully deleted.\n";

class Library : public testing::Test {
protected:
    std::string Output() const { return support::ReadFile(World.Folder / "output"); }

    const LogWorld World;
    const std::vector<std::string> Whole{"----------", "Log opened", "Log closing", "-----------"};
};

TEST_F(Library, ClosesTheLogWhenItIsUnloaded)
{
    RunAlone(World, [](const LogWorld& world) {
        support::SendDebugOutputTo(world.Folder / "output");
        for (int round = 0; round < 2; ++round) {
            Loaded library;
            ASSERT_TRUE(library);
            ASSERT_NE(library.OpenLog(), nullptr);
            EXPECT_TRUE(library.Unload());
            EXPECT_EQ(support::Texts(world.Log).size(), 4U) << "closed by now";
        }
    });
    EXPECT_EQ(Output(), std::string(Created) + Deleted + Created + Deleted);
    EXPECT_EQ(support::Texts(World.Log), Whole);
    EXPECT_EQ(support::Texts(World.Previous), Whole);
}

TEST_F(Library, ClosesTheLogAtTheEndOfTheProgram)
{
    RunAlone(World, [](const LogWorld& world) {
        support::SendDebugOutputTo(world.Folder / "output");
        const Loaded library;
        ASSERT_TRUE(library);
        ASSERT_NE(library.OpenLog(), nullptr);
    });
    EXPECT_EQ(Output(), std::string(Created) + Deleted);
    EXPECT_EQ(support::Texts(World.Log), Whole);
}

TEST_F(Library, SaysThatItGoesWithoutALogToo)
{
    RunAlone(World, [](const LogWorld& world) {
        support::SendDebugOutputTo(world.Folder / "output");
        Loaded library;
        ASSERT_TRUE(library);
        library.Unload();
    });
    EXPECT_EQ(Output(), Deleted);
    EXPECT_FALSE(std::filesystem::exists(World.Log)) << "loading opens no log";
}

}  // namespace
