// Named mutexes on Linux: the file of the shared page, fork, death of the owner, and foreign writes to the page.
#include "locks/page_arena.h"
#include "locks/shared_page.h"
#include "system.h"
#include "tessmaru/structured_exception.h"
#include "tessmaru/text.h"
#include "testkit/environment_variable.h"
#include "testkit/file_content.h"
#include "testkit/gate.h"
#include "testkit/linux/child.h"
#include "testkit/test_machine.h"

#include <gtest/gtest.h>

#include <atomic>
#include <csignal>
#include <fcntl.h>
#include <random>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <thread>

using namespace utility::literals;
using testkit::Child;
using testkit::Gate;

namespace {

class NamedMutexOnLinux : public testing::Test {
protected:
    static HANDLE Create(BOOL owned = FALSE, const unsigned short* name = u"App.log.Mutex"_w)
    {
        return CreateMutexW(nullptr, owned, name);
    }

    /// The file of the test's only mutex.
    std::string File() const
    {
        for (const auto& entry : std::filesystem::directory_iterator(Machine.Folder.path())) {
            if (entry.path().filename().string().starts_with("veltrix-mutex-"))
                return entry.path();
        }
        return {};
    }

    const testkit::TestMachine Machine;
};

TEST_F(NamedMutexOnLinux, RemovesItsFile)
{
    const HANDLE first = Create(TRUE);
    const HANDLE second = Create();
    EXPECT_NE(File(), "");
    CloseHandle(first);
    EXPECT_NE(File(), "");
    CloseHandle(second);
    EXPECT_EQ(File(), "");
}

TEST(PageArena, UsesThePlacesOfUnmappedPagesAgain)
{
    const int file = memfd_create("page", MFD_CLOEXEC);
    for (int i = 0; i < 5000; ++i) {  // more than there are places
        void* const page = layer::MapGuardedPage(file);
        ASSERT_NE(page, nullptr) << i;
        layer::UnmapGuardedPage(page);
    }
    close(file);
}

TEST_F(NamedMutexOnLinux, StaleHandleIsNeverALaterObject)
{
    const HANDLE mutex = Create();
    ASSERT_TRUE(CloseHandle(mutex));
    const HANDLE next = Create();
    for (const HANDLE stale : {mutex, INVALID_HANDLE_VALUE, reinterpret_cast<HANDLE>(0x12345)}) {
        EXPECT_FALSE(CloseHandle(stale));
        EXPECT_EQ(WaitForSingleObject(stale, 0), WAIT_FAILED);
        EXPECT_FALSE(ReleaseMutex(stale));
        EXPECT_EQ(GetLastError(), ERROR_INVALID_HANDLE);
    }
    EXPECT_EQ(WaitForSingleObject(next, 0), WAIT_OBJECT_0);
    CloseHandle(next);
}

TEST_F(NamedMutexOnLinux, ForkLeavesBothProcessesAHandle)
{
    const HANDLE mutex = Create(TRUE);
    const Gate parentGone(Machine.Folder / "parentGone");
    const Gate done(Machine.Folder / "done");
    Child parent([&] {
        // Neither this process nor its child owns the mutex of the first process.
        if (WaitForSingleObject(mutex, 0) != WAIT_TIMEOUT || ReleaseMutex(mutex))
            return 1;
        Child grandchild([&] {
            parentGone.Pass();
            const bool acquired = WaitForSingleObject(mutex, INFINITE) == WAIT_OBJECT_0 && ReleaseMutex(mutex);
            const bool known = Create() != nullptr && GetLastError() == ERROR_ALREADY_EXISTS;
            done.Open();
            return acquired && known ? 0 : 1;
        });
        ReleaseMutex(mutex);
        _exit(0);
    });
    EXPECT_EQ(parent.Wait(), 0);
    EXPECT_TRUE(ReleaseMutex(mutex));
    EXPECT_TRUE(CloseHandle(mutex));
    parentGone.Open();
    done.Pass();
}

TEST_F(NamedMutexOnLinux, StoppedOwnerKeepsItUntilItDiesThoughItsChildRuns)
{
    const HANDLE mutex = Create();
    const Gate ready(Machine.Folder / "ready");
    const Gate end(Machine.Folder / "end");
    Child parent([&] {
        WaitForSingleObject(mutex, INFINITE);
        if (fork() == 0) {
            ready.Open();
            end.Pass();
            _exit(0);
        }
        pause();
    });
    ready.Pass();
    parent.Stop();
    EXPECT_EQ(WaitForSingleObject(mutex, 200), WAIT_TIMEOUT);
    parent.Kill();
    EXPECT_EQ(WaitForSingleObject(mutex, INFINITE), WAIT_ABANDONED);
    end.Open();
    CloseHandle(mutex);
}

TEST_F(NamedMutexOnLinux, ForkWithoutFreeDescriptors)
{
    const HANDLE mutex = Create();
    Child child([&] {
        // More than the number of the mutex's own descriptor.
        const rlimit few{600, 600};
        setrlimit(RLIMIT_NOFILE, &few);
        while (dup(0) >= 0) {
        }
        if (Create(FALSE, u"Other"_w) != nullptr || GetLastError() != ERROR_TOO_MANY_OPEN_FILES)
            return 1;
        Child full([&] { return WaitForSingleObject(mutex, INFINITE) == WAIT_OBJECT_0 ? 0 : 1; });
        return full.Wait();
    });
    EXPECT_EQ(child.Wait(), 0);
    EXPECT_EQ(WaitForSingleObject(mutex, INFINITE), WAIT_ABANDONED);
    CloseHandle(mutex);
}

TEST_F(NamedMutexOnLinux, SurvivesForeignWritesToItsFile)
{
    const InstallSETranslator translator;  // none of the faults here reaches it
    const Gate written(Machine.Folder / "written");
    Child stranger([&] {
        written.Pass();
        return Create() != nullptr && GetLastError() == ERROR_ALREADY_EXISTS ? 0 : 1;
    });
    const HANDLE mutex = Create();
    const std::string file = File();
    std::mt19937 random(1);
    for (int round = 0; round < 200; ++round) {
        const int descriptor = open(file.c_str(), O_RDWR | O_CLOEXEC);
        if (round % 10 == 0) {
            ASSERT_EQ(ftruncate(descriptor, round % 20 == 0 ? 0 : 100), 0);
        } else {
            unsigned noise[64];
            for (unsigned& word : noise)
                word = round % 3 == 0 ? 0xFFFFFFFF : static_cast<unsigned>(random());
            ASSERT_GT(pwrite(descriptor, noise, sizeof noise, 0), 0);
        }
        close(descriptor);
        const DWORD result = WaitForSingleObject(mutex, 1);
        EXPECT_TRUE(result == WAIT_TIMEOUT || ReleaseMutex(mutex)) << result;
    }
    // A file that was cut off works again, and excludes others also if it is cut off while it is owned.
    ASSERT_EQ(truncate(file.c_str(), 0), 0);
    EXPECT_EQ(WaitForSingleObject(mutex, 1000), WAIT_OBJECT_0);
    ASSERT_EQ(truncate(file.c_str(), 0), 0);
    std::thread([mutex] { EXPECT_EQ(WaitForSingleObject(mutex, 10), WAIT_TIMEOUT); }).join();
    EXPECT_TRUE(ReleaseMutex(mutex));
    written.Open();
    EXPECT_EQ(stranger.Wait(), 0) << "a damaged page is repaired";
    CloseHandle(mutex);
}

TEST_F(NamedMutexOnLinux, NamesHaveAMaximumLengthAndOneSession)
{
    const HANDLE sessions[] = {Create(FALSE, u"Global\\App"_w), Create(FALSE, u"Local\\App"_w)};
    EXPECT_EQ(GetLastError(), ERROR_ALREADY_EXISTS);
    const HANDLE longest = Create(FALSE, utility::wstring(1900, u'x').c_str());
    EXPECT_EQ(WaitForSingleObject(longest, 0), WAIT_OBJECT_0);
    for (const HANDLE handle : {sessions[0], sessions[1], longest})
        EXPECT_TRUE(CloseHandle(handle));
    EXPECT_EQ(Create(FALSE, utility::wstring(2100, u'x').c_str()), nullptr);
    EXPECT_EQ(GetLastError(), ERROR_FILENAME_EXCED_RANGE);
}

TEST_F(NamedMutexOnLinux, ObstaclesAtItsPathAreRemovedByWhoMay)
{
    const HANDLE mutex = Create();
    const std::string file = File();
    CloseHandle(mutex);
    const auto opens = [] { return CloseHandle(Create()) != FALSE; };
    std::filesystem::create_symlink(Machine.Folder / "elsewhere", file);
    EXPECT_TRUE(opens());
    EXPECT_FALSE(std::filesystem::exists(Machine.Folder / "elsewhere")) << "the link was not followed";
    ASSERT_EQ(mkfifo(file.c_str(), 0600), 0);
    EXPECT_TRUE(opens());
    std::filesystem::create_directory(file);
    EXPECT_TRUE(opens());
    // A link to a file of another program must not truncate that.
    testkit::WriteFile(Machine.Folder / "another", "content");
    std::filesystem::create_hard_link(Machine.Folder / "another", file);
    EXPECT_TRUE(opens());
    EXPECT_EQ(testkit::ReadFile(Machine.Folder / "another"), "content");
    // What this account may not remove keeps it out.
    std::filesystem::create_directory(file);
    testkit::WriteFile(file + "/content", "");
    EXPECT_EQ(Create(), nullptr);
    EXPECT_EQ(GetLastError(), ERROR_ACCESS_DENIED);
    std::filesystem::remove_all(file);
    const testkit::EnvironmentVariable nowhere("VELTRIX_RUNTIME", (Machine.Folder / "missing").string());
    EXPECT_EQ(Create(), nullptr);
    EXPECT_EQ(GetLastError(), ERROR_PATH_NOT_FOUND);
}

TEST_F(NamedMutexOnLinux, AnOpeningThatAnotherProcessBlocksEndsWithACodeAndDelaysNoOther)
{
    const HANDLE mutex = Create();
    const std::string file = File();
    const testkit::Gate locked(Machine.Folder / "locked");
    const testkit::Gate end(Machine.Folder / "end");
    Child blocker([&] {
        struct flock lock {};
        lock.l_type = F_RDLCK;
        lock.l_whence = SEEK_SET;
        lock.l_len = 1;
        const int descriptor = open(file.c_str(), O_RDONLY | O_CLOEXEC);
        fcntl(descriptor, F_OFD_SETLK, &lock);
        locked.Open();
        end.Pass();
    });
    locked.Pass();
    Child opener([&] { return CreateMutexW(nullptr, FALSE, u"App.log.Mutex"_w) == nullptr ? 1 : 0; });
    Child fresh([&] {
        // Without the object that it inherited this process opens the page like any other.
        CloseHandle(mutex);
        std::atomic<bool> blocked{true};
        std::thread other([&] {
            // Meanwhile another mutex opens and closes at once.
            while (blocked)
                CloseHandle(Create(FALSE, u"Another"_w));
        });
        const HANDLE opened = Create();
        const DWORD error = GetLastError();
        blocked = false;
        other.join();
        return opened == nullptr && error == ERROR_TIMEOUT ? 0 : 1;
    });
    EXPECT_EQ(opener.Wait(), 0) << "an open mutex is not opened again";
    EXPECT_EQ(fresh.Wait(), 0);
    end.Open();
    blocker.Wait();
    CloseHandle(mutex);
}

TEST_F(NamedMutexOnLinux, AHandlerOfTheProgramRunsAsItWasInstalled)
{
    Child program([] {
        static sigset_t during;
        struct sigaction own {};
        own.sa_flags = SA_NODEFER;
        sigaddset(&own.sa_mask, SIGUSR1);
        own.sa_handler = [](int) { pthread_sigmask(SIG_BLOCK, nullptr, &during); };
        sigaction(SIGBUS, &own, nullptr);
        CloseHandle(Create());
        raise(SIGBUS);
        sigset_t after;
        pthread_sigmask(SIG_BLOCK, nullptr, &after);
        return sigismember(&during, SIGUSR1) == 1 && sigismember(&during, SIGBUS) == 0 &&
                       sigismember(&after, SIGUSR1) == 0
                   ? 0
                   : 1;
    });
    EXPECT_EQ(program.Wait(), 0);
}

TEST_F(NamedMutexOnLinux, ADamagedModeIsRestoredByRootAndByTheOwner)
{
    if (geteuid() != 0)
        GTEST_SKIP() << "only root can give a file to another account";
    SECURITY_DESCRIPTOR descriptor{};
    InitializeSecurityDescriptor(&descriptor, SECURITY_DESCRIPTOR_REVISION);
    SetSecurityDescriptorDacl(&descriptor, TRUE, nullptr, FALSE);
    SECURITY_ATTRIBUTES everyone{sizeof everyone, &descriptor, FALSE};
    const HANDLE mutex = CreateMutexW(&everyone, FALSE, u"App.log.Mutex"_w);
    const std::string file = File();
    constexpr uid_t owner = 65533;
    ASSERT_EQ(chown(file.c_str(), owner, owner), 0);
    std::filesystem::permissions(Machine.Folder.path(), std::filesystem::perms::all);
    const struct {
        uid_t Account;
        mode_t Before;
        mode_t After;
    } rows[] = {{0, 0, 0666}, {owner, 0600, 0666}, {65532, 0606, 0606}};
    for (const auto& row : rows) {
        ASSERT_EQ(chmod(file.c_str(), row.Before), 0);
        Child opener([&] {
            if (setresuid(row.Account, row.Account, row.Account) != 0)
                return 2;
            CloseHandle(mutex);
            return CreateMutexW(&everyone, FALSE, u"App.log.Mutex"_w) != nullptr ? 0 : 1;
        });
        EXPECT_EQ(opener.Wait(), 0) << row.Account;
        struct stat status {};
        ASSERT_EQ(stat(file.c_str(), &status), 0);
        EXPECT_EQ(status.st_mode & 0777, row.After) << row.Account;
    }
    CloseHandle(mutex);
}

TEST(SharedPage, IsTakenFromADeadOwnerOnlyIfItsWordIsUnchanged)
{
    const testkit::TestMachine machine;
    layer::SharedPage page;
    layer::Deadline deadline(INFINITE);
    bool isNew = false;
    ASSERT_EQ(page.Open(u"Page"_w, {0600, false}, false, deadline, isNew), ERROR_SUCCESS);
    const std::uint32_t dead = page.slot() ^ 1U;
    // The owner that the caller saw has died, but the page was released or taken over meanwhile.
    for (const std::uint32_t now : {0U, layer::SharedPage::Abandoned, dead | layer::SharedPage::Waiting, 77U}) {
        page.Word()->store(now);
        EXPECT_FALSE(page.TakeFromDeadOwner(dead));
        EXPECT_EQ(page.Word()->load(), now);
    }
    page.Word()->store(dead);
    EXPECT_TRUE(page.TakeFromDeadOwner(dead));
    EXPECT_EQ(page.Word()->load(), page.slot() | layer::SharedPage::Waiting);
}

TEST_F(NamedMutexOnLinux, AReleaseCanPassOnThatSomethingIsIncomplete)
{
    for (const HANDLE mutex : {Create(), CreateMutexW(nullptr, FALSE, nullptr)}) {
        for (const DWORD result : {WAIT_OBJECT_0, WAIT_ABANDONED}) {
            EXPECT_EQ(WaitForSingleObject(mutex, 0), result);
            EXPECT_EQ(WaitForSingleObject(mutex, 0), WAIT_OBJECT_0);
            if (result == WAIT_OBJECT_0)
                platform::AbandonAtRelease(mutex);
            EXPECT_TRUE(ReleaseMutex(mutex));
            EXPECT_TRUE(ReleaseMutex(mutex));
        }
        EXPECT_EQ(WaitForSingleObject(mutex, 0), WAIT_OBJECT_0);
        CloseHandle(mutex);
    }
}

TEST_F(NamedMutexOnLinux, AProcessThatClosesAllDescriptorsStillTakesOverFromADeadOwner)
{
    const HANDLE mutex = Create();
    const Gate restored(Machine.Folder / "restored");
    const Gate died(Machine.Folder / "died");
    Child survivor([&] {
        close_range(3, ~0U, 0);
        if (WaitForSingleObject(mutex, INFINITE) != WAIT_OBJECT_0)
            return 1;
        platform::RestoreMutex(mutex);
        ReleaseMutex(mutex);
        Gate(Machine.Folder / "restored").Open();
        Gate(Machine.Folder / "died").Pass();
        return WaitForSingleObject(mutex, 10'000) == WAIT_ABANDONED ? 0 : 2;
    });
    restored.Pass();
    EXPECT_EQ(Child([&] { return WaitForSingleObject(mutex, INFINITE) == WAIT_OBJECT_0 ? 0 : 1; }).Wait(), 0);
    died.Open();
    EXPECT_EQ(survivor.Wait(), 0);
    CloseHandle(mutex);
}

TEST_F(NamedMutexOnLinux, NoDescriptorSurvivesExec)
{
    const HANDLE mutex = Create();
    struct stat file {};
    ASSERT_EQ(stat(File().c_str(), &file), 0);
    int found = 0;
    for (int descriptor = 3; descriptor < 1024; ++descriptor) {
        struct stat opened {};
        if (fstat(descriptor, &opened) != 0 || opened.st_ino != file.st_ino || opened.st_dev != file.st_dev)
            continue;
        ++found;
        EXPECT_TRUE((fcntl(descriptor, F_GETFD) & FD_CLOEXEC) != 0);
    }
    EXPECT_EQ(found, 1);
    CloseHandle(mutex);
}

}  // namespace
