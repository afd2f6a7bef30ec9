// The shared library in a program on Linux.
#include "testkit/loaded_library.h"
#include "testkit/log_machine.h"
#include "testkit/open_handles.h"
#include "testkit/test_process.h"
#include "testkit/whole_log.h"

#include <csignal>

#include <unistd.h>

using testkit::LoadedLibrary;
using testkit::LogMachine;
using testkit::RunAlone;

namespace {

/// A static object of the program that calls the log from its destructor, after the library has closed it.
struct LateCaller {
    ~LateCaller()
    {
        if (GetInstance != nullptr && GetInstance() != nullptr)
            _exit(1);
    }
    LoadedLibrary::GetInstance* GetInstance = nullptr;
} lateCaller;

TEST(LibraryOnLinux, GivesNoLogAfterTheEndOfTheProgram)
{
    const LogMachine machine;
    RunAlone(machine, [](const LogMachine&) {
        const LoadedLibrary library;
        ASSERT_NE(library.OpenLog(), nullptr);
        lateCaller.GetInstance = library.FindGetInstance();
    });
    EXPECT_EQ(testkit::Texts(machine.Log).size(), 4U);
}

TEST(LibraryOnLinux, LeavesNothingOpen)
{
    const LogMachine machine;
    RunAlone(machine, [](const LogMachine&) {
        const int descriptors = testkit::OpenHandles();
        for (int round = 0; round < 3; ++round) {
            LoadedLibrary library;
            ASSERT_NE(library.OpenLog(), nullptr);
            EXPECT_TRUE(library.Unload());
            EXPECT_EQ(testkit::OpenHandles(), descriptors);
        }
    });
}

TEST(LibraryOnLinux, LeavesTheHandlersOfFaultsAsTheyWere)
{
    const LogMachine machine;
    RunAlone(machine, [](const LogMachine&) {
        for (const bool logFirst : {true, false}) {
            for (const int signal : {SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGTRAP})
                std::signal(signal, SIG_IGN);
            LoadedLibrary library;
            if (logFirst)
                library.OpenLog();
            const auto setTranslator = library.Find<decltype(_set_se_translator)>("_set_se_translator");
            setTranslator([](unsigned int, EXCEPTION_POINTERS*) {});
            if (!logFirst)
                library.OpenLog();
            EXPECT_TRUE(library.Unload());
            for (const int signal : {SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGTRAP})
                EXPECT_EQ(std::signal(signal, SIG_DFL), SIG_IGN) << signal;
        }
    });
}

TEST(LibraryOnLinux, LeavesTheSignalsOfTheProgramAsTheyWere)
{
    const LogMachine machine;
    RunAlone(machine, [](const LogMachine&) {
        for (const auto handler : {SIG_DFL, SIG_IGN}) {
            std::signal(SIGBUS, handler);
            std::signal(SIGXFSZ, handler);
            LoadedLibrary library;
            library.OpenLog();
            library.Unload();
            EXPECT_EQ(std::signal(SIGBUS, SIG_DFL), handler);
            EXPECT_EQ(std::signal(SIGXFSZ, SIG_DFL), handler);
        }
    });
}

}  // namespace
