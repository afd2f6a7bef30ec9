// The shared library in a program on Linux.
#include "testkit/faulting_calls.h"
#include "testkit/loaded_library.h"
#include "testkit/log_machine.h"
#include "testkit/open_handles.h"
#include "testkit/test_process.h"
#include "testkit/whole_log.h"

#include <csignal>
#include <string_view>

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

TEST(LibraryOnLinux, LeavesNothingOpenAndTheSignalsOfTheProgramAsTheyWere)
{
    const LogMachine machine;
    RunAlone(machine, [](const LogMachine&) {
        constexpr int signals[] = {SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGTRAP, SIGXFSZ};
        const int descriptors = testkit::OpenHandles();
        for (const auto handler : {SIG_IGN, SIG_DFL}) {
            for (const std::string_view steps : {"log", "log translator", "translator log"}) {
                for (const int signal : signals)
                    std::signal(signal, handler);
                LoadedLibrary library;
                const auto setTranslator = library.Find<decltype(_set_se_translator)>("_set_se_translator");
                if (steps.starts_with("translator"))
                    setTranslator([](unsigned int, EXCEPTION_POINTERS*) {});
                ASSERT_NE(library.OpenLog(), nullptr);
                if (steps.ends_with("translator"))
                    setTranslator([](unsigned int, EXCEPTION_POINTERS*) {});
                EXPECT_TRUE(library.Unload());
                EXPECT_EQ(testkit::OpenHandles(), descriptors) << steps;
                for (const int signal : signals)
                    EXPECT_EQ(std::signal(signal, SIG_DFL), handler) << signal << " after " << steps;
            }
        }
    });
}

struct sigaction replaced;

TEST(LibraryOnLinux, StaysLoadedForALaterHandlerThatMayCallIt)
{
    EXPECT_EXIT(
        {
            alarm(60);
            LoadedLibrary library;
            const auto setTranslator = library.Find<decltype(_set_se_translator)>("_set_se_translator");
            std::signal(SIGSEGV, SIG_DFL);
            setTranslator([](unsigned int, EXCEPTION_POINTERS*) {});
            struct sigaction later {};
            later.sa_flags = SA_SIGINFO;
            later.sa_sigaction = [](int signal, siginfo_t* info, void* context) {
                replaced.sa_sigaction(signal, info, context);
            };
            sigaction(SIGSEGV, &later, &replaced);
            setTranslator(nullptr);
            EXPECT_FALSE(library.Unload());
            testkit::ReadNull();
        },
        testing::KilledBySignal(SIGSEGV), "");
}

}  // namespace
