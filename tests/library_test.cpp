// The shared library as a program meets it: loading, unloading, the end of the program.
#include "log_world.h"

#include <dlfcn.h>

using namespace utility::literals;
using support::RunAlone;
using utilities::CLog;

namespace {

/// The library, loaded and unloaded by hand.
class Loaded {
public:
    Loaded() : Library(dlopen(TESSMARU_LIBRARY, RTLD_NOW | RTLD_LOCAL)) {}
    Loaded(const Loaded&) = delete;
    Loaded& operator=(const Loaded&) = delete;

    explicit operator bool() const { return Library != nullptr; }

    template <class Function>
    Function* Get(const char* name) const
    {
        return reinterpret_cast<Function*>(dlsym(Library, name));
    }

    /// False if the library stays in the process.
    bool Unload()
    {
        dlclose(Library);
        return dlopen(TESSMARU_LIBRARY, RTLD_NOW | RTLD_NOLOAD) == nullptr;
    }

private:
    void* Library;
};

CLog* OpenLog(const Loaded& library)
{
    return library.Get<CLog*()>("_ZN9utilities4CLog11GetInstanceEv")();
}

int OpenDescriptors()
{
    int count = 0;
    for ([[maybe_unused]] const auto& entry : std::filesystem::directory_iterator("/proc/self/fd"))
        ++count;
    return count;
}

TEST(Library, ClosesTheLogWhenItIsUnloaded)
{
    const support::LogWorld world;
    RunAlone([] {
        const support::Variable debug("VELTRIX_DEBUG_OUTPUT", "1");
        const int descriptors = OpenDescriptors();
        for (int round = 0; round < 3; ++round) {
            testing::internal::CaptureStderr();
            Loaded library;
            ASSERT_TRUE(library) << dlerror();
            ASSERT_NE(OpenLog(library), nullptr);
            const bool gone = library.Unload();
            EXPECT_EQ(testing::internal::GetCapturedStderr(),
                      "CLOG - Logging module successfully created\n"
                      "CLOG - Logging module successfully deleted.\n");
            EXPECT_TRUE(gone);
            EXPECT_EQ(OpenDescriptors(), descriptors);
        }
    });
    const std::vector<std::string> whole{"----------", "Log opened", "Log closing", "-----------"};
    EXPECT_EQ(support::Texts(world.Log), whole);
    EXPECT_EQ(support::Texts(world.Previous), whole);
}

TEST(Library, ClosesTheLogAtTheEndOfTheProgram)
{
    const support::LogWorld world;
    RunAlone([] {
        const Loaded library;
        ASSERT_TRUE(library) << dlerror();
        ASSERT_NE(OpenLog(library), nullptr);
    });
    EXPECT_EQ(support::Texts(world.Log).size(), 4U);
}

/// A static of the program that asks for the log when it goes, behind a library that was loaded by hand.
struct LateCaller {
    ~LateCaller()
    {
        if (GetInstance != nullptr && GetInstance() != nullptr)
            _exit(1);
    }
    CLog* (*GetInstance)() = nullptr;
} lateCaller;

TEST(Library, GivesNoLogOnceItHasClosedItForGood)
{
    const support::LogWorld world;
    RunAlone([] {
        const Loaded library;
        ASSERT_TRUE(library) << dlerror();
        ASSERT_NE(OpenLog(library), nullptr);
        lateCaller.GetInstance = library.Get<CLog*()>("_ZN9utilities4CLog11GetInstanceEv");
    });
    EXPECT_EQ(support::Texts(world.Log).size(), 4U);
}

TEST(Library, SaysThatItGoesWithoutALogToo)
{
    RunAlone([] {
        const support::Variable debug("VELTRIX_DEBUG_OUTPUT", "1");
        testing::internal::CaptureStderr();
        Loaded library;
        ASSERT_TRUE(library) << dlerror();
        library.Unload();
        EXPECT_EQ(testing::internal::GetCapturedStderr(), "CLOG - Logging module successfully deleted.\n");
    });
}

TEST(Library, LeavesTheSignalsOfTheProgramAsTheyWere)
{
    const support::LogWorld world;
    RunAlone([] {
        for (const auto handler : {SIG_DFL, SIG_IGN}) {
            std::signal(SIGBUS, handler);
            std::signal(SIGXFSZ, handler);
            Loaded library;
            ASSERT_TRUE(library) << dlerror();
            OpenLog(library);
            library.Unload();
            EXPECT_EQ(std::signal(SIGBUS, SIG_DFL), handler);
            EXPECT_EQ(std::signal(SIGXFSZ, SIG_DFL), handler);
        }
    });
}

}  // namespace
