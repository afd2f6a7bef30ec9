// The shared library as a program meets it: loading, unloading, the end of the program.
#include "loaded.h"
#include "log_world.h"

using support::Loaded;
using support::LogWorld;
using support::RunAlone;

namespace {

TEST(Library, ClosesTheLogWhenItIsUnloaded)
{
    const LogWorld world;
    RunAlone(world, [](const LogWorld&) {
        // The first round may leave things in the process that the system keeps.
        int handles = 0;
        for (int round = 0; round < 3; ++round) {
            support::DebugOutput output;
            Loaded library;
            ASSERT_TRUE(library);
            ASSERT_NE(library.OpenLog(), nullptr);
            const bool gone = library.Unload();
            EXPECT_EQ(output.Text(),
                      "CLOG - Logging module successfully created\n"
                      "CLOG - Logging module successfully deleted.\n");
            EXPECT_TRUE(gone);
            if (round != 0) {
                EXPECT_EQ(support::OpenHandles(), handles);
            }
            handles = support::OpenHandles();
        }
    });
    const std::vector<std::string> whole{"----------", "Log opened", "Log closing", "-----------"};
    EXPECT_EQ(support::Texts(world.Log), whole);
    EXPECT_EQ(support::Texts(world.Previous), whole);
}

TEST(Library, ClosesTheLogAtTheEndOfTheProgram)
{
    const LogWorld world;
    RunAlone(world, [](const LogWorld&) {
        const Loaded library;
        ASSERT_TRUE(library);
        ASSERT_NE(library.OpenLog(), nullptr);
    });
    EXPECT_EQ(support::Texts(world.Log).size(), 4U);
}

TEST(Library, SaysThatItGoesWithoutALogToo)
{
    const support::Machine machine;
    RunAlone(machine, [](const support::Machine&) {
        support::DebugOutput output;
        Loaded library;
        ASSERT_TRUE(library);
        library.Unload();
        EXPECT_EQ(output.Text(), "CLOG - Logging module successfully deleted.\n");
    });
}

}  // namespace
