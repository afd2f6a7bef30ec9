// The log of a process on a real machine: moved files, closed descriptors, file size limits, threads at the end.
#include "tessmaru/log.h"
#include "testkit/debug_output.h"
#include "testkit/environment_variable.h"
#include "testkit/file_content.h"
#include "testkit/gate.h"
#include "testkit/linux/child.h"
#include "testkit/log_machine.h"
#include "testkit/test_process.h"
#include "testkit/whole_log.h"

#include <gtest/gtest.h>

#include <chrono>
#include <fcntl.h>
#include <sys/resource.h>
#include <thread>

using namespace utility::literals;
using testkit::Child;
using testkit::Gate;
using testkit::LogMachine;
using testkit::TestProcess;
using testkit::Texts;
using utilities::CLog;

namespace {

using Strings = std::vector<std::string>;
constexpr LONG Closed = static_cast<LONG>(0x80040304);

/// Waits until the clock shows another second: the log checks its file then.
void WaitForTheNextSecond()
{
    const std::time_t start = std::time(nullptr);
    while (std::time(nullptr) == start)
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
}

TEST(LogFileOnLinux, AMovedOrRemovedLogIsOpenedAgain)
{
    const LogMachine machine;
    RunAlone(machine, [](const LogMachine& same) {
        CLog* const log = CLog::GetInstance();
        std::filesystem::rename(same.Log, same.Folder / "taken");
        WaitForTheNextSecond();
        EXPECT_EQ(log->LogInfo(u"after the move"_w, u"Test"_w), 0);
        EXPECT_EQ(Texts(same.Log), Strings{"after the move"});
        std::filesystem::remove(same.Log);
        WaitForTheNextSecond();
        EXPECT_EQ(log->LogInfo(u"after the removal"_w, u"Test"_w), 0);
    });
    EXPECT_EQ(Texts(machine.Folder / "taken"), Strings({"----------", "Log opened"}));
    EXPECT_EQ(Texts(machine.Log), Strings({"after the removal", "Log closing", "-----------"}));
    EXPECT_FALSE(std::filesystem::exists(machine.Previous)) << "nothing is rolled over";
}

TEST(LogFileOnLinux, AFileThatCannotBeOpenedAgainIsReportedUntilItCan)
{
    const LogMachine machine;
    RunAlone(machine, [](const LogMachine& same) {
        CLog* const log = CLog::GetInstance();
        std::filesystem::remove(same.Log);
        std::filesystem::create_directory(same.Log);
        WaitForTheNextSecond();
        EXPECT_EQ(log->LogInfo(u"lost"_w, u"Test"_w), E_ACCESSDENIED);
        EXPECT_EQ(log->LogInfo(u"lost"_w, u"Test"_w), E_ACCESSDENIED);
        std::filesystem::remove(same.Log);
        EXPECT_EQ(log->LogInfo(u"found"_w, u"Test"_w), 0);
    });
    EXPECT_EQ(Texts(machine.Log), Strings({"found", "Log closing", "-----------"}));
}

TEST(LogFileOnLinux, AProgramThatClosesAllDescriptorsKeepsItsLogAndItsFiles)
{
    const LogMachine machine;
    const std::string own = machine.Folder / "own";
    Child program([&] {
        CLog* const log = CLog::GetInstance();
        close_range(3, ~0U, 0);
        const int file = open(own.c_str(), O_RDWR | O_CREAT | O_APPEND | O_CLOEXEC, 0600);
        for (int i = 0; i < 64; ++i)
            static_cast<void>(fcntl(file, F_DUPFD_CLOEXEC, 512));
        WaitForTheNextSecond();
        const LONG code = log->LogInfo(u"still here"_w, u"Test"_w);
        // Another thread and another process get the mutex afterwards.
        LONG other = -1;
        std::thread([&] { other = log->LogInfo(u"a thread"_w, u"Test"_w); }).join();
        return code == 0 && other == 0 ? 0 : 1;
    });
    EXPECT_EQ(program.Wait(), 0);
    EXPECT_EQ(Texts(machine.Log), Strings({"----------", "Log opened", "still here", "a thread"}));
    EXPECT_EQ(testkit::ReadFile(own), "");
}

TEST(LogFileOnLinux, ADaemonThatClosesAllDescriptorsLosesNoAcknowledgedRecord)
{
    const LogMachine machine;
    const std::string own = machine.Folder / "own";
    Child program([&] {
        CLog* const log = CLog::GetInstance();
        close_range(0, ~0U, 0);
        static_cast<void>(open(own.c_str(), O_RDWR | O_CREAT | O_APPEND | O_CLOEXEC, 0600));
        // The log is opened again at once, and under the number that it had before. It has to stay open.
        for (const unsigned short* const text : {u"at once"_w, u"second"_w}) {
            if (log->LogInfo(text, u"Test"_w) != 0)
                return 1;
        }
        WaitForTheNextSecond();
        return log->LogInfo(u"later"_w, u"Test"_w) == 0 ? 0 : 2;
    });
    EXPECT_EQ(program.Wait(), 0);
    const Strings expected = {"----------", "Log opened", "at once", "second", "later"};
    EXPECT_EQ(Texts(machine.Log), expected);
    EXPECT_EQ(testkit::ReadFile(own), "");
}

TEST(LogFileOnLinux, AFileSizeLimitIsAFullDisk)
{
    const LogMachine machine;
    Child limited([] {
        const rlimit limit{1024, 1024};
        setrlimit(RLIMIT_FSIZE, &limit);
        if (CLog::GetInstance() != nullptr)
            return 1;
        return CLog::GetInitError() == static_cast<LONG>(0x80070070) ? 0 : 2;
    });
    EXPECT_EQ(limited.Wait(), 0);
}

TEST(LogFileOnLinux, APartThatStaysIsEndedByTheNextWriter)
{
    // The part ends after a whole unit, or after half of one.
    for (const unsigned part : {20U, 21U}) {
        const LogMachine machine;
        const Gate opened(machine.Folder / "opened");
        const Gate failed(machine.Folder / "failed");
        TestProcess next(machine, [](const LogMachine& same) {
            CLog* const log = CLog::GetInstance();
            Gate(same.Folder / "opened").Open();
            Gate(same.Folder / "failed").Pass();
            EXPECT_EQ(log->LogInfo(u"after the part"_w, u"Test"_w), 0);
        });
        opened.Pass();
        Child writer([&] {
            CLog* const log = CLog::GetInstance();
            const rlimit full{std::filesystem::file_size(machine.Log) + part, RLIM_INFINITY};
            setrlimit(RLIMIT_FSIZE, &full);
            const LONG diskFull = static_cast<LONG>(0x80070070);
            // The second call cannot end the line of the first one.
            return log->LogInfo(u"lost"_w, u"Test"_w) == diskFull && log->LogInfo(u"lost"_w, u"Test"_w) == diskFull ? 0
                                                                                                                    : 1;
        });
        EXPECT_EQ(writer.Wait(), 0);
        failed.Open();
        EXPECT_EQ(next.Wait(), 0);
        const testkit::LogFile log(machine.Log);
        ASSERT_EQ(log.Records().size(), 7U) << part;
        EXPECT_EQ(log.Records()[4].Text, "after the part");
        EXPECT_EQ(log.Torn().size(), 1U);
    }
}

TEST(LogFileOnLinux, ThreadsMayLogUntilTheProcessHasEnded)
{
    for (int round = 0; round < 20; ++round) {
        const LogMachine machine;
        RunAlone(machine, [](const LogMachine&) {
            CLog* const log = CLog::GetInstance();
            static std::atomic<int> running{0};
            for (int i = 0; i < 4; ++i) {
                std::thread([log] {
                    ++running;
                    LONG code = 0;
                    do {
                        code = log->LogInfo(u"%d"_w, u"Thread"_w, 1);
                        CLog::GetInstance();
                    } while (code == 0);
                    // The process ends while this thread runs; a wrong code shows as its exit status.
                    if (code != Closed)
                        _exit(3);
                }).detach();
            }
            while (running < 4)
                std::this_thread::yield();
        });
        const Strings texts = Texts(machine.Log);
        ASSERT_GE(texts.size(), 4U);
        EXPECT_EQ(texts[texts.size() - 2], "Log closing");
        EXPECT_EQ(texts.back(), "-----------");
    }
}

TEST(LogFileOnLinux, AShortDateThatIsTooLongOnSomeDaysIsReportedAtTheOpening)
{
    for (const std::string picture : {"ddd dd MMMM yyyy", "dd.MM.yyyy"}) {
        const LogMachine machine;
        machine.SetLog(
            machine.Log, {},
            "[HKEY_USERS\\.DEFAULT\\Control Panel\\International]\r\n\"sShortDate\"=\"" + picture + "\"\r\n");
        RunAlone(machine, [](const LogMachine& same) {
            testkit::SendDebugOutputTo(same.Folder / "output");
            EXPECT_NE(CLog::GetInstance(), nullptr);
        });
        const std::string output = testkit::ReadFile(machine.Folder / "output");
        EXPECT_EQ(output.find("too long") != std::string::npos, picture.starts_with("ddd ")) << output;
    }
}

TEST(LogFileOnLinux, TheReasonForAMissingLogIsInDebugOutput)
{
    const struct {
        std::string Path;
        const char* Text;
    } rows[] = {{"/missing folder/App.log", "/missing folder/App.log"}, {"", "Log\\Application"}};
    for (const auto& row : rows) {
        const LogMachine machine;
        machine.SetLog(row.Path);
        RunAlone(machine, [](const LogMachine& same) {
            testkit::SendDebugOutputTo(same.Folder / "output");
            EXPECT_EQ(CLog::GetInstance(), nullptr);
        });
        const std::string output = testkit::ReadFile(machine.Folder / "output");
        EXPECT_NE(output.find("CLOG - Log not opened: "), std::string::npos) << output;
        EXPECT_NE(output.find(row.Text), std::string::npos) << output;
    }
}

}  // namespace
