// The log: records, rollover, the key of the path, and several threads and processes.
#include "tessmaru/log.h"
#include "system.h"
#include "testkit/file_content.h"
#include "testkit/gate.h"
#include "testkit/log_machine.h"
#include "testkit/log_reader.h"
#include "testkit/open_handles.h"
#include "testkit/settings_text.h"
#include "testkit/test_process.h"
#include "testkit/whole_log.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <map>
#include <regex>
#include <thread>

using namespace utility::literals;
using testkit::Gate;
using testkit::LogMachine;
using testkit::RunAlone;
using testkit::TestProcess;
using utilities::CLog;
using Strings = std::vector<std::string>;

namespace {

/// Logs from its destructor, after main, if it is armed.
struct LateWriter {
    ~LateWriter()
    {
        if (Armed)
            CLog::GetInstance()->LogInfo(u"Written by a static destructor"_w, u"Test"_w);
    }
    bool Armed = false;
} lateWriter;

/// Expects a wait of one second; the upper limit only tells it from a wait without end.
template <class Work>
void ExpectASecond(Work work)
{
    const auto start = std::chrono::steady_clock::now();
    work();
    const std::chrono::duration<double> waited = std::chrono::steady_clock::now() - start;
    EXPECT_TRUE(waited.count() > 0.7 && waited.count() < 30) << waited.count();
}

class Log : public testing::Test {
protected:
    /// Makes the key "Other" name another file.
    void NameOther() const
    {
        Machine.SetLog(Machine.Log, "",
                       testkit::Section("HKEY_LOCAL_MACHINE\\Other",
                                        testkit::TextValue("FilePath", (Machine.Folder / "Other.log").string())));
    }

    /// Has the log open from the opening of the gate "opened" until it passes the gate "end".
    static void HoldOpen(const LogMachine& machine)
    {
        CLog* const log = CLog::GetInstance();
        Gate(machine.Folder / "opened").Open();
        Gate(machine.Folder / "end").Pass();
        EXPECT_EQ(log->LogInfo(u"still open"_w, u"Test"_w), 0);
    }

    const LogMachine Machine;
};

TEST_F(Log, WritesWholeRecordsFromOpeningToClosing)
{
    TestProcess writer(Machine, [](const LogMachine& machine) {
        CLog* const log = CLog::GetInstance();
        lateWriter.Armed = true;
        EXPECT_EQ(log->LogError(u"Failed with %08X"_w, u"Radio"_w, 0xC0DEU), 0);
        EXPECT_EQ(log->LogWarn(u"%s %S"_w, u"Radio"_w, u"wide"_w, "narrow"), 0);
        EXPECT_EQ(log->LogInfo(u""_w, u""_w), 0);
        EXPECT_EQ(log->LogStatus(u"%ld of %I64d"_w, u"ExactTwelve!"_w, LONG{-1}, LONGLONG{1} << 40), 0);
        EXPECT_EQ(log->LogInfo(u"%d%%"_w, u"ThirteenUnits"_w, 100), 0);
        testkit::WriteFile(machine.Folder / "thread", std::to_string(GetCurrentThreadId()));
    });
    EXPECT_EQ(writer.Wait(), 0);

    const auto id = [](unsigned long number) {
        char text[9];
        std::snprintf(text, sizeof text, "%08lx", number);
        return std::string(text);
    };
    const std::string thread = id(std::stoul(testkit::ReadFile(Machine.Folder / "thread")));
    const std::vector<std::pair<std::string, std::string>> levelsAndTexts{
        {"INFO |          Log", "----------"},
        {"INFO |          Log", "Log opened"},
        {" ERR |        Radio", "Failed with 0000C0DE"},
        {"WARN |        Radio", "wide narrow"},
        {"INFO |             ", ""},
        {"     | ExactTwelve!", "-1 of 1099511627776"},
        {"INFO | ThirteenUnits", "100%"},
        {"INFO |         Test", "Written by a static destructor"},
        {"INFO |          Log", "Log closing"},
        {"INFO |          Log", "-----------"},
    };
    const testkit::LogFile log = testkit::WholeLog(Machine.Log);
    ASSERT_EQ(log.Records().size(), levelsAndTexts.size());
    for (std::size_t i = 0; i < log.Records().size(); ++i) {
        const testkit::Record& record = log.Records()[i];
        const std::string time(record.Time);
        EXPECT_TRUE(std::regex_match(time, std::regex(R"(\d[-./\d]+ \d\d:\d\d:\d\d\.\d{3})"))) << time;
        EXPECT_EQ(record.Process, id(writer.id()));
        EXPECT_EQ(record.Thread, thread);
        EXPECT_EQ(std::string(record.Level) + " | " + std::string(record.Source), levelsAndTexts[i].first);
        EXPECT_EQ(record.Text, levelsAndTexts[i].second);
    }
    const std::string start{log.Records()[0].Time.front(), '\0'};
    EXPECT_EQ(testkit::ReadFile(Machine.Log).substr(0, 2), start) << "no byte-order mark";
    EXPECT_FALSE(std::filesystem::exists(Machine.Previous)) << "there was nothing to move";
}

TEST_F(Log, RecordsHaveTheTimeOfTheirCall)
{
    RunAlone(Machine, [](const LogMachine&) {
        CLog* const log = CLog::GetInstance();
        std::this_thread::sleep_for(std::chrono::seconds(1));  // the records of the opening have another second
        SYSTEMTIME now;
        GetLocalTime(&now);
        log->LogInfo(u"%d:%d:%d.%d"_w, u"Test"_w, now.wHour, now.wMinute, now.wSecond, now.wMilliseconds);
    });
    const auto milliseconds = [](std::string_view time) {
        int hour = 0, minute = 0, second = 0, rest = 0;
        EXPECT_EQ(std::sscanf(std::string(time).c_str(), "%d:%d:%d.%d", &hour, &minute, &second, &rest), 4) << time;
        return ((hour * 60 + minute) * 60 + second) * 1000 + rest;
    };
    const testkit::LogFile log = testkit::WholeLog(Machine.Log);
    ASSERT_EQ(log.Records().size(), 5U);
    const testkit::Record& record = log.Records()[2];
    constexpr int day = 24 * 60 * 60 * 1000;
    const int late = milliseconds(record.Time.substr(record.Time.rfind(' ') + 1)) - milliseconds(record.Text);
    EXPECT_LT((late + day) % day, 30000) << record.Line;
}

TEST_F(Log, CutsTheTextAndNothingElse)
{
    RunAlone(Machine, [](const LogMachine&) {
        const utility::wstring whole(1022, u'a');
        const utility::wstring source(5000, u's');
        CLog* const log = CLog::GetInstance();
        EXPECT_EQ(log->LogInfo(u"%s"_w, u"Test"_w, whole.c_str()), 0);
        EXPECT_EQ(log->LogInfo(u"%sb"_w, u"Test"_w, whole.c_str()), 0);
        EXPECT_EQ(log->LogInfo(u"long source"_w, source.c_str()), 0);
    });
    const testkit::LogFile log = testkit::WholeLog(Machine.Log);
    ASSERT_EQ(log.Records().size(), 7U);
    EXPECT_EQ(log.Records()[2].Text, std::string(1022, 'a'));
    EXPECT_EQ(log.Records()[3].Text, std::string(1022, 'a'));
    EXPECT_EQ(log.Records()[4].Source, std::string(5000, 's'));
}

TEST_F(Log, RollsOverWhenTheFamilyHasEnded)
{
    testkit::WriteFile(Machine.Previous, "older");
    testkit::WriteFile(Machine.Log, "old");
    const Gate opened(Machine.Folder / "opened");
    const Gate end(Machine.Folder / "end");
    TestProcess first(Machine, HoldOpen);
    opened.Pass();
    EXPECT_EQ(testkit::ReadFile(Machine.Previous), "old");
    RunAlone(Machine, [](const LogMachine&) { CLog::GetInstance()->LogInfo(u"second"_w, u"Test"_w); });
    end.Open();
    EXPECT_EQ(first.Wait(), 0);
    EXPECT_EQ(Strings({"----------", "Log opened", "----------", "Log opened", "second", "Log closing", "-----------",
                       "still open", "Log closing", "-----------"}),
              testkit::Texts(Machine.Log));
    EXPECT_EQ(testkit::ReadFile(Machine.Previous), "old");
    RunAlone(Machine, [](const LogMachine&) { CLog::GetInstance(); });
    EXPECT_EQ(testkit::Texts(Machine.Previous).size(), 10U);
    EXPECT_EQ(testkit::Texts(Machine.Log).size(), 4U);
}

TEST_F(Log, FindsTheNameOfThePreviousFileInEveryFormOfPath)
{
    std::string slashes = Machine.Log;
    std::replace(slashes.begin(), slashes.end(), '\\', '/');
    std::string backslashes = slashes;
    std::replace(backslashes.begin(), backslashes.end(), '/', '\\');
    std::string mixed = backslashes;
    mixed[mixed.rfind('\\')] = '/';
    for (const std::string& path : {slashes, backslashes, mixed, std::string("App.log")}) {
        Machine.SetLog(path);
        testkit::WriteFile(Machine.Log, "old");
        std::filesystem::remove(Machine.Previous);
        RunAlone(Machine, [](const LogMachine& machine) {
            std::filesystem::current_path(machine.Folder.path());
            EXPECT_NE(CLog::GetInstance(), nullptr) << CLog::GetInitError();
        });
        EXPECT_EQ(testkit::ReadFile(Machine.Previous), "old") << path;
        EXPECT_EQ(testkit::Texts(Machine.Log).size(), 4U) << path;
    }
}

TEST_F(Log, AppendsToAnOldFileThatCannotBeMoved)
{
    const std::string line("o\0l\0d\0\r\0\n\0", 10);
    std::filesystem::create_directory(Machine.Previous);
    const std::string lineEnd("\r\0\n\0", 4);
    // After its last line, a writer that was killed may have left the start of a record. It stays, and gets a line end.
    const struct {
        std::string Start;
        std::string Ended;
    } rows[] = {{{}, {}},
                {std::string("2\0000\0002\0", 6), std::string("2\0000\0002\0", 6) + lineEnd},
                {std::string("2\0000\0002", 5), std::string("2\0000\0002\0", 6) + lineEnd}};
    for (const auto& [start, ended] : rows) {
        testkit::WriteFile(Machine.Log, line + start);
        RunAlone(Machine, [](const LogMachine&) { CLog::GetInstance(); });
        const std::string content = testkit::ReadFile(Machine.Log);
        EXPECT_EQ(content.substr(0, line.size() + ended.size()), line + ended);
        testkit::WriteFile(Machine.Folder / "appended", content.substr(line.size() + ended.size()));
        EXPECT_EQ(testkit::Texts(Machine.Folder / "appended"),
                  Strings({"----------", "Log opened", "Log closing", "-----------"}));
    }
    EXPECT_TRUE(std::filesystem::is_directory(Machine.Previous));
}

TEST_F(Log, DoesNotMoveAnOpenFileThatIsOpenedByAnotherName)
{
    const Gate opened(Machine.Folder / "opened");
    const Gate end(Machine.Folder / "end");
    TestProcess first(Machine, HoldOpen);
    opened.Pass();
    Machine.SetLog(Machine.Folder.path().string() + "/./App.log");
    RunAlone(Machine, [](const LogMachine&) { CLog::GetInstance(); });
    end.Open();
    EXPECT_EQ(first.Wait(), 0);
    EXPECT_EQ(testkit::Texts(Machine.Log).size(), 9U);
    EXPECT_FALSE(std::filesystem::exists(Machine.Previous));
}

TEST_F(Log, OpensAgainWithoutRollingItsOwnFileOver)
{
    RunAlone(Machine, [](const LogMachine& machine) {
        CLog* const log = CLog::GetInstance();
        const int before = testkit::OpenHandles();
        for (int i = 0; i < 3; ++i)
            EXPECT_EQ(log->Initialise(), 0);
        EXPECT_EQ(log->LogInfo(u"the same file"_w, u"Test"_w), 0);
        EXPECT_EQ(testkit::OpenHandles(), before);

        // The first exception of a process may open handles that the runtime keeps.
        int whenClosed = 0;
        for (const bool first : {true, false}) {
            machine.SetLog((machine.Folder.path() / "missing" / "App.log").string());
            try {
                log->Initialise();
                ADD_FAILURE() << "opened a log in a missing folder";
            } catch (const CLog::log_exception& failure) {
                EXPECT_EQ(failure.ErrorCode, static_cast<LONG>(0x80070003));
            }
            EXPECT_EQ(log->LogInfo(u"closed"_w, u"Test"_w), static_cast<LONG>(0x80070006));
            EXPECT_TRUE(first || testkit::OpenHandles() == whenClosed);
            whenClosed = testkit::OpenHandles();
            machine.SetLog(machine.Log);
            EXPECT_EQ(log->Initialise(), 0);
            EXPECT_GT(testkit::OpenHandles(), whenClosed);
        }
        EXPECT_EQ(log->LogInfo(u"open again"_w, u"Test"_w), 0);
    });
    EXPECT_EQ(testkit::Texts(Machine.Log), Strings({"open again", "Log closing", "-----------"}));
}

TEST_F(Log, KeyOfThePathCountsForTheNextOpening)
{
    NameOther();
    RunAlone(Machine, [](const LogMachine&) {
        CLog::SetRegLogfilePath(u"Other"_w);
        CLog* const log = CLog::GetInstance();
        log->LogInfo(u"release's own"_w, u"Test"_w);
        CLog::SetRegLogfilePath(u"Other"_w);
        log->Initialise();
        log->LogInfo(u"other"_w, u"Test"_w);
        CLog::SetRegLogfilePath(u""_w);
        log->Initialise();
    });
    EXPECT_EQ(testkit::Texts(Machine.Folder / "Other.log"), Strings({"other"}));
    EXPECT_EQ(testkit::Texts(Machine.Previous), Strings({"----------", "Log opened", "release's own"}));
    EXPECT_EQ(testkit::Texts(Machine.Log), Strings({"Log closing", "-----------"}));
}

TEST_F(Log, KeyOfThePathStaysWhileAnotherProcessChangesIts)
{
    NameOther();
    RunAlone(Machine, [](const LogMachine& machine) {
        CLog* const log = CLog::GetInstance();
        const Gate held(machine.Folder / "held");
        const TestProcess holder(machine, [](const LogMachine& sameMachine) {
            CreateMutexW(nullptr, TRUE, platform::Wide(u"SetRegLogfilePath.Mutex"_w));
            Gate(sameMachine.Folder / "held").Open();
            Gate(sameMachine.Folder / "never").Pass();
        });
        held.Pass();
        ExpectASecond([] { CLog::SetRegLogfilePath(u"Other"_w); });
        log->Initialise();
        log->LogInfo(u"not moved"_w, u"Test"_w);
    });
    EXPECT_FALSE(std::filesystem::exists(Machine.Folder / "Other.log"));
}

TEST_F(Log, KeyOfThePathChangesAfterAProcessDiedChangingIts)
{
    NameOther();
    RunAlone(Machine, [](const LogMachine& machine) {
        CLog* const log = CLog::GetInstance();
        const int handles = testkit::OpenHandles();
        CLog::SetRegLogfilePath(u""_w);
        EXPECT_EQ(testkit::OpenHandles(), handles);
        // The handle keeps the mutex, so that it is abandoned when its owner dies.
        const HANDLE mutex = CreateMutexW(nullptr, FALSE, platform::Wide(u"SetRegLogfilePath.Mutex"_w));
        TestProcess holder(machine, [](const LogMachine&) {
            WaitForSingleObject(CreateMutexW(nullptr, FALSE, platform::Wide(u"SetRegLogfilePath.Mutex"_w)), INFINITE);
            testkit::Die();
        });
        EXPECT_NE(holder.Wait(), 0);
        CLog::SetRegLogfilePath(u"Other"_w);
        CloseHandle(mutex);
        log->Initialise();
    });
    EXPECT_TRUE(std::filesystem::exists(Machine.Folder / "Other.log"));
}

TEST_F(Log, ThreadsThatOpenItAtOnceShareOneInstance)
{
    RunAlone(Machine, [](const LogMachine& machine) {
        constexpr int threads = 16;
        // The first of them cannot finish before the others have called.
        const HANDLE mutex = CreateMutexW(nullptr, TRUE, platform::Wide(machine.MutexName().c_str()));
        std::atomic<int> ready{0};
        std::array<CLog*, threads> found{};
        std::vector<std::thread> openers;
        for (CLog*& instance : found) {
            openers.emplace_back([&ready, &instance] {
                ++ready;
                instance = CLog::GetInstance();
            });
        }
        while (ready < threads)
            std::this_thread::yield();
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
        EXPECT_TRUE(ReleaseMutex(mutex));
        for (std::thread& opener : openers)
            opener.join();
        EXPECT_NE(found[0], nullptr);
        EXPECT_EQ(std::count(found.begin(), found.end(), found[0]), threads);
    });
    EXPECT_EQ(testkit::Texts(Machine.Log), Strings({"----------", "Log opened", "Log closing", "-----------"}));
}

TEST_F(Log, ALaterOpenerWaitsUntilTheFirstHasOpenedIt)
{
    RunAlone(Machine, [](const LogMachine& machine) {
        // Like a first opener that takes longer to roll the file over than a record waits.
        const HANDLE mutex = CreateMutexW(nullptr, TRUE, platform::Wide(machine.MutexName().c_str()));
        const Gate started(machine.Folder / "started");
        TestProcess later(machine, [](const LogMachine& sameMachine) {
            Gate(sameMachine.Folder / "started").Open();
            EXPECT_NE(CLog::GetInstance(), nullptr);
        });
        started.Pass();
        std::this_thread::sleep_for(std::chrono::milliseconds(1300));
        EXPECT_FALSE(std::filesystem::exists(machine.Log));
        EXPECT_TRUE(ReleaseMutex(mutex));
        EXPECT_EQ(later.Wait(), 0);
    });
    EXPECT_EQ(testkit::Texts(Machine.Log).size(), 4U);
}

TEST_F(Log, RecordsOfThreadsAndProcessesNeverMix)
{
    constexpr int threads = 4;
    constexpr int each = 200;
    const auto write = [](const LogMachine& machine) {
        CLog* const log = CLog::GetInstance();
        Gate(machine.Folder / "opened").Open();
        Gate(machine.Folder / "begin").Pass();
        std::vector<std::thread> writers;
        for (int thread = 0; thread < threads; ++thread) {
            writers.emplace_back([=] {
                for (int i = 0; i < each; ++i)
                    EXPECT_EQ(log->LogInfo(u"thread %d record %d"_w, u"Test"_w, thread, i), 0);
            });
        }
        for (std::thread& writer : writers)
            writer.join();
    };
    const Gate opened(Machine.Folder / "opened");
    const Gate begin(Machine.Folder / "begin");
    TestProcess one(Machine, write);
    TestProcess other(Machine, write);
    opened.Pass();
    opened.Pass();
    begin.Open();
    begin.Open();
    EXPECT_EQ(one.Wait(), 0);
    EXPECT_EQ(other.Wait(), 0);
    std::map<std::string, int> next;
    int written = 0;
    const testkit::LogFile log = testkit::WholeLog(Machine.Log);
    for (const testkit::Record& record : log.Records()) {
        int thread = 0;
        int number = 0;
        if (std::sscanf(std::string(record.Text).c_str(), "thread %d record %d", &thread, &number) != 2)
            continue;
        ++written;
        EXPECT_EQ(next[std::string(record.Process) + std::string(record.Thread)]++, number);
    }
    EXPECT_EQ(written, 2 * threads * each);
}

TEST_F(Log, GivesARecordUpAfterASecondWithoutTheLock)
{
    RunAlone(Machine, [](const LogMachine& machine) {
        CLog* const log = CLog::GetInstance();
        const Gate held(machine.Folder / "held");
        const Gate go(machine.Folder / "go");
        TestProcess holder(machine, [](const LogMachine& sameMachine) {
            const HANDLE mutex = CreateMutexW(nullptr, FALSE, platform::Wide(sameMachine.MutexName().c_str()));
            EXPECT_EQ(GetLastError(), DWORD{ERROR_ALREADY_EXISTS}) << "every process derives the same name";
            WaitForSingleObject(mutex, INFINITE);
            Gate(sameMachine.Folder / "held").Open();
            Gate(sameMachine.Folder / "go").Pass();
            ReleaseMutex(mutex);
        });
        held.Pass();
        ExpectASecond([log] { EXPECT_EQ(log->LogInfo(u"lost"_w, u"Test"_w), static_cast<LONG>(0x80040302)); });
        go.Open();
        EXPECT_EQ(holder.Wait(), 0);
        EXPECT_EQ(log->LogInfo(u"continues"_w, u"Test"_w), 0);
    });
    const Strings texts = testkit::Texts(Machine.Log);
    EXPECT_EQ(std::count(texts.begin(), texts.end(), "continues"), 1);
    EXPECT_EQ(std::count(texts.begin(), texts.end(), "lost"), 0);
}

}  // namespace
