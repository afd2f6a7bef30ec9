// The shared library as a program on Linux meets it.
#include "loaded.h"
#include "log_world.h"

#include <csignal>

#include <dlfcn.h>
#include <unistd.h>

using support::Loaded;
using support::LogWorld;
using support::RunAlone;

namespace {

/// A static of the program that asks for the log when it goes, behind a library that was loaded by hand.
struct LateCaller {
    ~LateCaller()
    {
        if (GetInstance != nullptr && GetInstance() != nullptr)
            _exit(1);
    }
    Loaded::GetInstance* GetInstance = nullptr;
} lateCaller;

TEST(LibraryOnLinux, GivesNoLogOnceItHasClosedItForGood)
{
    const LogWorld world;
    RunAlone(world, [](const LogWorld&) {
        const Loaded library;
        ASSERT_TRUE(library);
        ASSERT_NE(library.OpenLog(), nullptr);
        lateCaller.GetInstance = library.getInstance();
    });
    EXPECT_EQ(support::Texts(world.Log).size(), 4U);
}

TEST(LibraryOnLinux, LeavesNothingOpen)
{
    const LogWorld world;
    RunAlone(world, [](const LogWorld&) {
        const int descriptors = support::OpenHandles();
        for (int round = 0; round < 3; ++round) {
            Loaded library;
            ASSERT_TRUE(library);
            ASSERT_NE(library.OpenLog(), nullptr);
            EXPECT_TRUE(library.Unload());
            EXPECT_EQ(support::OpenHandles(), descriptors);
        }
    });
}

/// The library's operation of this name.
void* OperationOf(const Loaded& library, const char* name)
{
    Dl_info info{};
    dladdr(reinterpret_cast<void*>(library.getInstance()), &info);
    void* const again = dlopen(info.dli_fname, RTLD_NOW | RTLD_NOLOAD);
    void* const operation = dlsym(again, name);
    dlclose(again);
    return operation;
}

TEST(LibraryOnLinux, LeavesTheHandlersOfFaultsAsTheyWere)
{
    const LogWorld world;
    RunAlone(world, [](const LogWorld&) {
        for (const bool logFirst : {true, false}) {
            for (const int signal : {SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGTRAP})
                std::signal(signal, SIG_IGN);
            Loaded library;
            ASSERT_TRUE(library);
            if (logFirst)
                library.OpenLog();
            const auto setTranslator =
                reinterpret_cast<decltype(&_set_se_translator)>(OperationOf(library, "_set_se_translator"));
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
    const LogWorld world;
    RunAlone(world, [](const LogWorld&) {
        for (const auto handler : {SIG_DFL, SIG_IGN}) {
            std::signal(SIGBUS, handler);
            std::signal(SIGXFSZ, handler);
            Loaded library;
            ASSERT_TRUE(library);
            library.OpenLog();
            library.Unload();
            EXPECT_EQ(std::signal(SIGBUS, SIG_DFL), handler);
            EXPECT_EQ(std::signal(SIGXFSZ, SIG_DFL), handler);
        }
    });
}

}  // namespace
