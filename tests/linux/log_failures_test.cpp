// What the log answers when the machine fails it: each failure is made to happen.
#include "child.h"
#include "fail_allocation.h"
#include "log_world.h"

#include <fcntl.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/resource.h>
#include <sys/stat.h>

using namespace utility::literals;
using support::Child;
using utilities::CLog;

namespace {

/// Runs `work`, which may refer to the test's objects, in a process of its own, which ends as a program does.
template <class Work>
void RunAlone(Work work)
{
    std::fflush(nullptr);
    Child child([&work]() -> int {
        work();
        std::fflush(nullptr);
        std::exit(testing::Test::HasFailure() ? 1 : 0);
    });
    EXPECT_EQ(child.Wait(), 0) << "the process that ran alone";
}

constexpr auto NotObtained = static_cast<LONG>(0x80040302);
constexpr auto OutOfMemory = static_cast<LONG>(0x8007000E);
constexpr auto DiskFull = static_cast<LONG>(0x80070070);

constexpr uid_t OneAccount = 65533;
constexpr uid_t AnotherAccount = 65532;

/// Gives up the rights of root, to which no folder is closed.
void BecomeAccount(uid_t account)
{
    if (geteuid() == 0 && (setresgid(account, account, account) != 0 || setresuid(account, account, account) != 0))
        std::abort();
}

LONG OpeningCode()
{
    return CLog::GetInstance() != nullptr ? 0 : CLog::GetInitError();
}

class LogFailures : public testing::Test {
protected:
    std::string LogKey(const std::string& values) const
    {
        return "[" + std::string(support::SuiteKey) + "Log\\Application]\r\n" + values;
    }

    const support::LogWorld World;
};

TEST_F(LogFailures, OpeningTellsWhyAndTriesAgain)
{
    EXPECT_EQ(CLog::GetInitError(), 0);
    const std::string folder = World.Folder.path().string();
    const std::string closed = World.Folder / "closed";
    std::filesystem::create_directory(closed);
    std::filesystem::permissions(closed, std::filesystem::perms::owner_read | std::filesystem::perms::owner_exec |
                                             std::filesystem::perms::others_read | std::filesystem::perms::others_exec);
    std::filesystem::create_directory(World.Folder / "folder.log");
    const std::string longest =
        folder + "/" + std::string(200, 'a') + "/" + std::string(500 - folder.size() - 202, 'b');
    struct Case {
        std::string Store;
        unsigned Code;
    };
    const auto path = [this](const std::string& value) {
        return LogKey("\"FilePath\"=\"" + support::Escaped(value) + "\"\r\n");
    };
    std::string unterminated = "\"FilePath\"=hex(1):";
    for (int i = 0; i < 513; ++i)
        unterminated += "61,00,";
    unterminated.back() = '\r';
    const Case cases[] = {
        {"", 0x80070002},
        {LogKey(""), 0x80070002},
        {path(""), 0x80070002},
        {LogKey("\"FilePath\"=hex(1):\r\n"), 0x80070002},
        {path(folder + "/missing/App.log"), 0x80070003},
        {path("Q:\\App.log"), 0x80070003},
        {path(closed + "/App.log"), 0x80070005},
        {path(folder + "/folder.log"), 0x80070005},
        {path("/" + std::string(512, 'x')), 0x800700EA},
        {LogKey(unterminated + "\n"), 0x800700EA},
        {path(longest), 0x80070003},
    };
    RunAlone([&] {
        BecomeAccount(OneAccount);
        const int descriptors = support::OpenHandles();
        for (const Case& failure : cases) {
            World.SetRegistry(failure.Store);
            EXPECT_EQ(static_cast<unsigned>(OpeningCode()), failure.Code) << failure.Store;
            EXPECT_EQ(support::OpenHandles(), descriptors);
        }
        std::filesystem::remove(World.Store);
        EXPECT_EQ(static_cast<unsigned>(OpeningCode()), 0x80070002U);
        World.SetLog(World.Log);
        EXPECT_EQ(OpeningCode(), 0);
        EXPECT_EQ(CLog::GetInitError(), 0);
    });
    EXPECT_TRUE(std::filesystem::is_directory(World.Folder / "folder.log"));
    EXPECT_EQ(support::Texts(World.Log).size(), 4U);
}

TEST_F(LogFailures, PathOfTheGreatestLengthWorks)
{
    std::string path = World.Folder.path().string();
    while (path.size() < 512 - 202)
        std::filesystem::create_directory(path += "/" + std::string(200, 'd'));
    path += "/" + std::string(512 - path.size() - 1, 'f');
    if (path.size() - path.rfind('/') > 240) {
        path.resize(path.rfind('/'));
        std::filesystem::create_directory(path += "/" + std::string(100, 'e'));
        path += "/" + std::string(512 - path.size() - 1, 'f');
    }
    ASSERT_EQ(path.size(), 512U);
    World.SetLog(path);
    RunAlone([] { EXPECT_EQ(OpeningCode(), 0); });
    EXPECT_EQ(support::Texts(path).size(), 4U);
}

TEST_F(LogFailures, AllDescriptorsUsed)
{
    RunAlone([] {
        std::vector<int> used;
        const rlimit few{64, 64};
        setrlimit(RLIMIT_NOFILE, &few);
        for (int descriptor = dup(0); descriptor >= 0; descriptor = dup(0))
            used.push_back(descriptor);
        for (std::size_t left = 0; left < 3; ++left) {
            EXPECT_EQ(static_cast<unsigned>(OpeningCode()), 0x80070004U) << left << " left";
            if (CLog::GetInitError() == 0)
                break;
            close(used.back());
            used.pop_back();
            // The store needs one for itself for a moment, the mutex and the file one each.
            if (left == 1)
                break;
        }
        for (const int descriptor : used)
            close(descriptor);
        EXPECT_EQ(OpeningCode(), 0);
        while (dup(0) >= 0) {
        }
        EXPECT_EQ(CLog::GetInstance()->LogInfo(u"needs none"_w, u"Test"_w), 0);
    });
    EXPECT_EQ(support::Texts(World.Log).size(), 5U);
}

TEST_F(LogFailures, FileSizeLimitLosesWholeRecordsOnly)
{
    Child writer([] {
        CLog* const log = CLog::GetInstance();
        struct rlimit limit {
            1501, RLIM_INFINITY
        };
        setrlimit(RLIMIT_FSIZE, &limit);
        LONG code = 0;
        for (int i = 0; code == 0; ++i)
            code = log->LogInfo(u"record %d"_w, u"Test"_w, i);
        const bool full = code == DiskFull && log->LogInfo(u"still full"_w, u"Test"_w) == DiskFull;
        limit.rlim_cur = RLIM_INFINITY;
        setrlimit(RLIMIT_FSIZE, &limit);
        return full && log->LogInfo(u"room again"_w, u"Test"_w) == 0 ? 0 : 1;
    });
    EXPECT_EQ(writer.Wait(), 0);
    const auto texts = support::Texts(World.Log);
    for (std::size_t i = 2; i + 1 < texts.size(); ++i)
        EXPECT_EQ(texts[i], "record " + std::to_string(i - 2));
    EXPECT_EQ(texts.back(), "room again");
}

TEST_F(LogFailures, FullDiskLosesWholeRecordsOnly)
{
    const std::string disk = World.Folder / "disk";
    std::filesystem::create_directory(disk);
    if (unshare(CLONE_NEWNS) != 0 || mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0 ||
        mount("none", disk.c_str(), "tmpfs", 0, "size=64k") != 0)
        GTEST_SKIP() << "only root can mount the small disk that this needs";
    World.SetLog(disk + "/App.log");
    RunAlone([&] {
        CLog* const log = CLog::GetInstance();
        ASSERT_NE(log, nullptr);
        int written = 0;
        LONG code = 0;
        while ((code = log->LogInfo(u"record %d"_w, u"Test"_w, written)) == 0)
            ++written;
        EXPECT_EQ(code, DiskFull);
        EXPECT_EQ(log->LogInfo(u"record %d"_w, u"Test"_w, written), DiskFull);
        const auto texts = support::Texts(disk + "/App.log");
        ASSERT_EQ(texts.size(), static_cast<std::size_t>(written) + 2);
        EXPECT_EQ(texts.back(), "record " + std::to_string(written - 1));
        mount("none", disk.c_str(), "tmpfs", MS_REMOUNT, "size=128k");
        EXPECT_EQ(log->LogInfo(u"room again"_w, u"Test"_w), 0);
    });
    umount(disk.c_str());
}

TEST_F(LogFailures, StoppedHolderCostsEachRecordASecondUntilItGoesOn)
{
    Child writer([&] {
        CLog* const log = CLog::GetInstance();
        const HANDLE mutex = CreateMutexW(nullptr, FALSE, (support::Wide(World.Log) + u".Mutex"_w).c_str());
        const support::PipeGate held;
        const support::PipeGate go;
        Child stopped([&] {
            WaitForSingleObject(mutex, INFINITE);
            held.Open();
            go.Pass();
            ReleaseMutex(mutex);
            return 0;
        });
        held.Pass();
        stopped.Stop();
        const bool lost = log->LogInfo(u"lost"_w, u"Test"_w) == NotObtained;
        go.Open();
        stopped.Signal(SIGCONT);
        stopped.Wait();
        return lost && log->LogInfo(u"goes on"_w, u"Test"_w) == 0 ? 0 : 1;
    });
    EXPECT_EQ(writer.Wait(), 0);
    EXPECT_EQ(support::Texts(World.Log).back(), "goes on");
}

TEST_F(LogFailures, HolderKilledAtItsRecordCostsNobodyElseARecord)
{
    // What a killed writer may leave: nothing, or the front of its record up to a page of the file.
    const utility::wstring fronts[] = {u""_w, u"2026-11-22 09:0"_w, utility::wstring(4000, u'x')};
    const auto dieHolding = [this](std::string_view front) {
        Child([&] {
            const HANDLE mutex = CreateMutexW(nullptr, FALSE, (support::Wide(World.Log) + u".Mutex"_w).c_str());
            WaitForSingleObject(mutex, INFINITE);
            std::ofstream(World.Log, std::ios::app | std::ios::binary) << front;
            raise(SIGKILL);
            return 0;
        }).Wait();
    };
    RunAlone([&] {
        CLog* const log = CLog::GetInstance();
        for (const utility::wstring& front : fronts) {
            const std::string_view bytes(reinterpret_cast<const char*>(front.data()), front.size() * 2);
            dieHolding(bytes);
            EXPECT_EQ(log->LogInfo(u"as usual"_w, u"Test"_w), 0);
            if (bytes.size() > 1) {
                dieHolding(bytes.substr(1));
                EXPECT_EQ(log->LogInfo(u"as usual"_w, u"Test"_w), 0);
            }
            // The next to take the lock may also be one that opens the log.
            dieHolding(bytes);
            EXPECT_EQ(log->Initialise(), 0);
        }
    });
    const std::vector<std::string> whole{"----------", "Log opened", "as usual",    "as usual",   "as usual",
                                         "as usual",   "as usual",   "Log closing", "-----------"};
    EXPECT_EQ(support::Texts(World.Log), whole);
}

TEST_F(LogFailures, DateThatIsTooLongLosesTheRecord)
{
    World.SetLog(
        World.Log, "",
        "[HKEY_USERS\\.DEFAULT\\Control Panel\\International]\r\n\"sShortDate\"=\"'a very long date ' yyyy\"\r\n");
    RunAlone([] {
        ASSERT_EQ(OpeningCode(), 0);
        EXPECT_EQ(static_cast<unsigned>(CLog::GetInstance()->LogInfo(u"lost"_w, u"Test"_w)), 0x8007007AU);
    });
    EXPECT_EQ(support::ReadFile(World.Log), "");
}

TEST_F(LogFailures, AccountsShareOneLog)
{
    if (geteuid() != 0)
        GTEST_SKIP() << "only root can write as two accounts";
    std::filesystem::permissions(World.Folder.path(), std::filesystem::perms::all | std::filesystem::perms::sticky_bit);
    const support::PipeGate opened;
    const support::PipeGate end;
    Child first([&] {
        umask(0077);
        BecomeAccount(OneAccount);
        CLog::GetInstance();
        opened.Open();
        end.Pass();
        std::exit(0);
    });
    opened.Pass();
    for (const uid_t account : {AnotherAccount, uid_t{0}}) {
        RunAlone([&] {
            BecomeAccount(account);
            EXPECT_EQ(OpeningCode(), 0);
        });
    }
    // The first account's writer dies holding the lock; another account's takes it over.
    Child holder([&] {
        BecomeAccount(OneAccount);
        CreateMutexW(nullptr, FALSE, (support::Wide(World.Log) + u".Mutex"_w).c_str());
        return 0;
    });
    EXPECT_EQ(holder.Wait(), 0);
    end.Open();
    EXPECT_EQ(first.Wait(), 0);
    EXPECT_EQ(support::Texts(World.Log).size(), 12U);
    RunAlone([&] {
        BecomeAccount(AnotherAccount);
        EXPECT_EQ(OpeningCode(), 0);
    });
}

TEST_F(LogFailures, MemoryThatRunsOutAtAnyPointOfOpening)
{
    World.SetLog(World.Log, "101");
    RunAlone([] {
        const int descriptors = support::OpenHandles();
        int failed = 0;
        for (int n = 1;; ++n) {
            support::FailAllocation(n);
            CLog* log = nullptr;
            LONG code = 0;
            try {
                log = CLog::GetInstance();
                code = CLog::GetInitError();
            } catch (const _com_error& failure) {
                code = failure.Error();
            }
            const bool reached = support::AllocationFailed();
            support::FailAllocation(0);
            if (log != nullptr) {
                EXPECT_EQ(code, 0);
                if (!reached)
                    break;
                // Only the mask may be missing then; the log itself is whole.
                EXPECT_EQ(log->LogInfo(u"opened at allocation %d"_w, u"Test"_w, n), 0);
                std::exit(testing::Test::HasFailure() ? 1 : 0);
            }
            ++failed;
            EXPECT_EQ(code, OutOfMemory) << "allocation " << n;
            EXPECT_EQ(support::OpenHandles(), descriptors) << "allocation " << n;
        }
        EXPECT_GT(failed, 10);
        EXPECT_EQ(CLog::GetInstance()->LogInfo(u"opened at last"_w, u"Test"_w), 0);
    });
}

TEST_F(LogFailures, MemoryThatRunsOutInALogCall)
{
    RunAlone([] {
        CLog* const log = CLog::GetInstance();
        const utility::wstring longSource(3000, u's');
        for (int n = 1; n <= 4; ++n) {
            support::FailAllocation(n);
            EXPECT_EQ(log->LogInfo(u"needs no memory: %d"_w, u"Test"_w, n), 0);
            support::FailAllocation(n);
            const LONG code = log->LogInfo(u"%d"_w, longSource.c_str(), n);
            EXPECT_EQ(code, support::AllocationFailed() ? static_cast<LONG>(0x80040303) : 0);
            support::FailAllocation(0);
        }
        EXPECT_EQ(log->LogInfo(u"goes on"_w, u"Test"_w), 0);
    });
    const auto texts = support::Texts(World.Log);
    EXPECT_EQ(texts.size(), 4U + 4 + 3 + 1);
}

}  // namespace
