// The shared library in a program that loads it: loading, unloading, the end of the program.
#include "testkit/debug_output.h"
#include "testkit/file_content.h"
#include "testkit/loaded_library.h"
#include "testkit/log_machine.h"
#include "testkit/test_process.h"
#include "testkit/whole_log.h"

using testkit::LoadedLibrary;
using testkit::LogMachine;
using testkit::RunAlone;

namespace {

constexpr const char* Created = "CLOG - Logging module successfully created\n";
constexpr const char* Deleted = "CLOG - Logging module successfully deleted.\n";

class Library : public testing::Test {
protected:
    std::string Output() const { return testkit::ReadFile(Machine.Folder / "output"); }

    const LogMachine Machine;
    const std::vector<std::string> Whole{"----------", "Log opened", "Log closing", "-----------"};
};

TEST_F(Library, ClosesTheLogWhenItIsUnloaded)
{
    RunAlone(Machine, [](const LogMachine& machine) {
        testkit::SendDebugOutputTo(machine.Folder / "output");
        for (int round = 0; round < 2; ++round) {
            LoadedLibrary library;
            ASSERT_NE(library.OpenLog(), nullptr);
            EXPECT_TRUE(library.Unload());
            EXPECT_EQ(testkit::Texts(machine.Log).size(), 4U) << "the log is closed";
        }
    });
    EXPECT_EQ(Output(), std::string(Created) + Deleted + Created + Deleted);
    EXPECT_EQ(testkit::Texts(Machine.Log), Whole);
    EXPECT_EQ(testkit::Texts(Machine.Previous), Whole);
}

TEST_F(Library, ClosesTheLogAtTheEndOfTheProgram)
{
    RunAlone(Machine, [](const LogMachine& machine) {
        testkit::SendDebugOutputTo(machine.Folder / "output");
        const LoadedLibrary library;
        ASSERT_NE(library.OpenLog(), nullptr);
    });
    EXPECT_EQ(Output(), std::string(Created) + Deleted);
    EXPECT_EQ(testkit::Texts(Machine.Log), Whole);
}

TEST_F(Library, ReportsItsUnloadingWithoutALogToo)
{
    RunAlone(Machine, [](const LogMachine& machine) {
        testkit::SendDebugOutputTo(machine.Folder / "output");
        LoadedLibrary library;
        library.Unload();
    });
    EXPECT_EQ(Output(), Deleted);
    EXPECT_FALSE(std::filesystem::exists(Machine.Log)) << "loading opens no log";
}

}  // namespace
