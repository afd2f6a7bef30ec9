// Failures of the log that tests can cause on Linux only.
#include "tessmaru/log.h"
#include "tessmaru/settings.h"
#include "tessmaru/version.h"
#include "testkit/file_content.h"
#include "testkit/gate.h"
#include "testkit/linux/child.h"
#include "testkit/linux/failing_allocation.h"
#include "testkit/log_machine.h"
#include "testkit/open_handles.h"
#include "testkit/text.h"
#include "testkit/whole_log.h"

#include <fcntl.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/resource.h>
#include <sys/stat.h>

using namespace utility::literals;
using testkit::Child;
using testkit::Gate;
using utilities::CLog;

namespace {

/// Runs `work`, which may refer to the test's objects, in a process that ends as a program does.
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

constexpr auto OutOfMemory = static_cast<LONG>(0x8007000E);
constexpr auto DiskFull = static_cast<LONG>(0x80070070);

constexpr uid_t OneAccount = 65533;
constexpr uid_t AnotherAccount = 65532;

/// Gives up the rights of root, who can write to every folder.
void BecomeAccount(uid_t account)
{
    if (geteuid() == 0 && (setresgid(account, account, account) != 0 || setresuid(account, account, account) != 0))
        std::abort();
}

LONG OpeningCode()
{
    return CLog::GetInstance() != nullptr ? 0 : CLog::GetInitError();
}

class LogFailuresOnLinux : public testing::Test {
protected:
    const testkit::LogMachine Machine;
};

TEST_F(LogFailuresOnLinux, OpeningWithoutPermissionLeavesNothingOpen)
{
    std::filesystem::permissions(Machine.Folder.path(), std::filesystem::perms::all);
    const std::string closed = Machine.Folder / "closed";
    std::filesystem::create_directory(closed);
    std::filesystem::permissions(closed, std::filesystem::perms::owner_read | std::filesystem::perms::owner_exec |
                                             std::filesystem::perms::others_read | std::filesystem::perms::others_exec);
    RunAlone([&] {
        BecomeAccount(OneAccount);
        const int descriptors = testkit::OpenHandles();
        Machine.SetLog(closed + "/App.log");
        EXPECT_EQ(static_cast<unsigned>(OpeningCode()), 0x80070005U);
        EXPECT_EQ(testkit::OpenHandles(), descriptors);
        Machine.SetLog("Q:\\App.log");
        EXPECT_EQ(static_cast<unsigned>(OpeningCode()), 0x80070003U) << "there is no such drive";
        Machine.SetLog(Machine.Log);
        EXPECT_EQ(OpeningCode(), 0);
    });
    EXPECT_EQ(testkit::Texts(Machine.Log).size(), 4U);
}

TEST_F(LogFailuresOnLinux, OutOfDescriptors)
{
    RunAlone([] {
        const rlimit few{64, 64};
        setrlimit(RLIMIT_NOFILE, &few);
        std::vector<int> used;
        for (int descriptor = dup(0); descriptor >= 0; descriptor = dup(0))
            used.push_back(descriptor);
        // The store briefly needs one, the mutex and the file one each.
        for (int left = 0; left < 2; ++left) {
            EXPECT_EQ(static_cast<unsigned>(OpeningCode()), 0x80070004U) << left << " left";
            close(used.back());
            used.pop_back();
        }
        for (const int descriptor : used)
            close(descriptor);
        EXPECT_EQ(OpeningCode(), 0);
        while (dup(0) >= 0) {
        }
        EXPECT_EQ(CLog::GetInstance()->LogInfo(u"needs no descriptor"_w, u"Test"_w), 0);
    });
    EXPECT_EQ(testkit::Texts(Machine.Log).size(), 5U);
}

/// Logs until there is no room, calls `makeRoom` and logs once more. @return whether each call gave its result
template <class Work>
bool FillsUpAndContinues(Work makeRoom)
{
    CLog* const log = CLog::GetInstance();
    int written = 0;
    const auto write = [&] { return log->LogInfo(u"record %d"_w, u"Test"_w, written); };
    LONG code = 0;
    for (; (code = write()) == 0; ++written) {
    }
    const bool isFull = code == DiskFull && write() == DiskFull;
    makeRoom();
    return isFull && write() == 0;
}

/// Expects exactly the records that FillsUpAndContinues could write, in order.
void ExpectWholeRecords(const std::string& path)
{
    const auto texts = testkit::Texts(path);
    EXPECT_GT(texts.size(), 5U);
    for (std::size_t i = 2; i < texts.size(); ++i)
        EXPECT_EQ(texts[i], "record " + std::to_string(i - 2));
}

TEST_F(LogFailuresOnLinux, FileSizeLimitLosesWholeRecordsOnly)
{
    Child writer([] {
        CLog::GetInstance();
        const rlimit few{1501, RLIM_INFINITY};
        const rlimit enough{RLIM_INFINITY, RLIM_INFINITY};
        setrlimit(RLIMIT_FSIZE, &few);
        return FillsUpAndContinues([&enough] { setrlimit(RLIMIT_FSIZE, &enough); }) ? 0 : 1;
    });
    EXPECT_EQ(writer.Wait(), 0);
    ExpectWholeRecords(Machine.Log);
}

TEST_F(LogFailuresOnLinux, FullDiskLosesWholeRecordsOnly)
{
    const std::string disk = Machine.Folder / "disk";
    std::filesystem::create_directory(disk);
    if (unshare(CLONE_NEWNS) != 0 || mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0 ||
        mount("none", disk.c_str(), "tmpfs", 0, "size=64k") != 0)
        GTEST_SKIP() << "only root can mount the small disk that this needs";
    Machine.SetLog(disk + "/App.log");
    Child writer([&disk] {
        const auto makeRoom = [&disk] { mount("none", disk.c_str(), "tmpfs", MS_REMOUNT, "size=128k"); };
        return FillsUpAndContinues(makeRoom) ? 0 : 1;
    });
    EXPECT_EQ(writer.Wait(), 0);
    ExpectWholeRecords(disk + "/App.log");
    umount(disk.c_str());
}

TEST_F(LogFailuresOnLinux, DateThatIsTooLongLosesTheRecord)
{
    Machine.SetLog(
        Machine.Log, "",
        "[HKEY_USERS\\.DEFAULT\\Control Panel\\International]\r\n\"sShortDate\"=\"'a very long date ' yyyy\"\r\n");
    RunAlone([] {
        ASSERT_EQ(OpeningCode(), 0);
        EXPECT_EQ(static_cast<unsigned>(CLog::GetInstance()->LogInfo(u"lost"_w, u"Test"_w)), 0x8007007AU);
    });
    EXPECT_EQ(testkit::ReadFile(Machine.Log), "");
}

TEST_F(LogFailuresOnLinux, AccountsShareOneLog)
{
    if (geteuid() != 0)
        GTEST_SKIP() << "only root can write as two accounts";
    std::filesystem::permissions(Machine.Folder.path(),
                                 std::filesystem::perms::all | std::filesystem::perms::sticky_bit);
    const Gate opened(Machine.Folder / "opened");
    const Gate end(Machine.Folder / "end");
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
    // A process of the first account ends without closing the mutex. Other accounts can still take it.
    Child holder([&] {
        BecomeAccount(OneAccount);
        CreateMutexW(nullptr, FALSE, (testkit::Wide(Machine.Log) + u".Mutex"_w).c_str());
        return 0;
    });
    EXPECT_EQ(holder.Wait(), 0);
    end.Open();
    EXPECT_EQ(first.Wait(), 0);
    EXPECT_EQ(testkit::Texts(Machine.Log).size(), 12U);
    RunAlone([&] {
        BecomeAccount(AnotherAccount);
        EXPECT_EQ(OpeningCode(), 0);
    });
}

TEST_F(LogFailuresOnLinux, OutOfMemoryAtAnyPointOfOpening)
{
    Machine.SetLog(Machine.Log, "101");
    RunAlone([] {
        const int descriptors = testkit::OpenHandles();
        CLog* log = nullptr;
        int allocation = 0;
        while (log == nullptr) {
            testkit::FailAllocation(++allocation);
            LONG code = 0;
            try {
                log = CLog::GetInstance();
                code = CLog::GetInitError();
            } catch (const _com_error& failure) {
                code = failure.Error();
            }
            testkit::FailAllocation(0);
            EXPECT_EQ(code, log != nullptr ? 0 : OutOfMemory) << "allocation " << allocation;
            EXPECT_TRUE(log != nullptr || testkit::OpenHandles() == descriptors) << "allocation " << allocation;
        }
        EXPECT_GT(allocation, 10) << "failures must reach the opening";
        // Only the mask may be missing. The log is open.
        EXPECT_EQ(log->LogInfo(u"opened at allocation %d"_w, u"Test"_w, allocation), 0);
    });
}

TEST_F(LogFailuresOnLinux, CallsLeaveNoObjectOpen)
{
    Machine.SetLog((Machine.Folder.path() / "missing" / "App.log").string());
    RunAlone([] {
        const struct {
            const char* Name;
            void (*Call)();
        } rows[] = {
            {"a log that does not open", [] { EXPECT_EQ(CLog::GetInstance(), nullptr); }},
            {"the key of its path", [] { CLog::SetRegLogfilePath(u""_w); }},
            {"a setting", [] { CSettingsRegistry().getLogDebugMask(); }},
            {"a setting without a key", [] { CSettingsRegistry().getUDPPortNumber(); }},
            {"the version of a module", [] { utility::CVersionInfo().setModule(u"/proc/self/exe"_w); }},
            {"the version of no module", [] { utility::CVersionInfo().setModule(u"/missing"_w); }},
        };
        for (const auto& row : rows) {
            row.Call();  // what the library keeps for later calls comes with the first one
            const int blocks = testkit::LiveBlocks();
            const int descriptors = testkit::OpenHandles();
            row.Call();
            row.Call();
            EXPECT_EQ(testkit::LiveBlocks(), blocks) << row.Name;
            EXPECT_EQ(testkit::OpenHandles(), descriptors) << row.Name;
        }
    });
}

TEST_F(LogFailuresOnLinux, OutOfMemoryInALogCall)
{
    RunAlone([] {
        CLog* const log = CLog::GetInstance();
        const utility::wstring longSource(3000, u's');
        for (int n = 1; n <= 4; ++n) {
            testkit::FailAllocation(n);
            EXPECT_EQ(log->LogInfo(u"needs no memory: %d"_w, u"Test"_w, n), 0);
            testkit::FailAllocation(n);
            const LONG code = log->LogInfo(u"%d"_w, longSource.c_str(), n);
            EXPECT_EQ(code, testkit::AllocationFailed() ? static_cast<LONG>(0x80040303) : 0);
            testkit::FailAllocation(0);
        }
        EXPECT_EQ(log->LogInfo(u"continues"_w, u"Test"_w), 0);
    });
    const auto texts = testkit::Texts(Machine.Log);
    EXPECT_EQ(texts.size(), 4U + 4 + 3 + 1);
}

}  // namespace
