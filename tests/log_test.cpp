#include "tessmaru/log.h"
#include "log_world.h"
#include "system.h"

#include <algorithm>
#include <map>
#include <regex>
#include <thread>

using namespace utility::literals;
using support::Fields;
using support::Gate;
using support::LogWorld;
using support::Process;
using support::RunAlone;
using utilities::CLog;
using Strings = std::vector<std::string>;

namespace {

/// Logs from its destructor, behind main, once it is told to.
struct LateWriter {
    ~LateWriter()
    {
        if (Armed)
            CLog::GetInstance()->LogInfo(u"Written by a static destructor"_w, u"Test"_w);
    }
    bool Armed = false;
} lateWriter;

class Log : public testing::Test {
protected:
    /// Lets the key "Other" name another file.
    void NameOther() const
    {
        World.SetLog(
            World.Log, "",
            "[HKEY_LOCAL_MACHINE\\Other]\r\n\"FilePath\"=\"" + support::Escaped(World.Folder / "Other.log") + "\"\r\n");
    }

    const LogWorld World;
};

TEST_F(Log, WritesWholeRecordsFromOpeningToClosing)
{
    Process writer(World, [](const LogWorld& world) {
        CLog* const log = CLog::GetInstance();
        lateWriter.Armed = true;
        EXPECT_EQ(log->LogError(u"Failed with %08X"_w, u"Radio"_w, 0xC0DEU), 0);
        EXPECT_EQ(log->LogWarn(u"%s %S"_w, u"Radio"_w, u"wide"_w, "narrow"), 0);
        EXPECT_EQ(log->LogInfo(u""_w, u""_w), 0);
        EXPECT_EQ(log->LogStatus(u"%ld of %I64d"_w, u"ExactTwelve!"_w, LONG{-1}, LONGLONG{1} << 40), 0);
        EXPECT_EQ(log->LogInfo(u"%d%%"_w, u"ThirteenUnits"_w, 100), 0);
        support::WriteFile(world.Folder / "thread", std::to_string(GetCurrentThreadId()));
    });
    EXPECT_EQ(writer.Wait(), 0);

    const auto id = [](unsigned long number) {
        char text[9];
        std::snprintf(text, sizeof text, "%08lx", number);
        return std::string(text);
    };
    const std::string thread = id(std::stoul(support::ReadFile(World.Folder / "thread")));
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
    const auto records = support::Records(World.Log);
    ASSERT_EQ(records.size(), levelsAndTexts.size());
    for (std::size_t i = 0; i < records.size(); ++i) {
        const Fields& record = records[i];
        EXPECT_TRUE(std::regex_match(record[0], std::regex(R"(\d[-./\d]+ \d\d:\d\d:\d\d\.\d{3})"))) << record[0];
        EXPECT_EQ(record[1], id(writer.id()));
        EXPECT_EQ(record[2], thread);
        EXPECT_EQ(record[3] + " | " + record[4], levelsAndTexts[i].first);
        EXPECT_EQ(record[5], levelsAndTexts[i].second);
    }
    const std::string front{records[0][0].front(), '\0'};
    EXPECT_EQ(support::ReadFile(World.Log).substr(0, 2), front) << "no byte-order mark";
    EXPECT_FALSE(std::filesystem::exists(World.Previous)) << "there was nothing to move";
}

TEST_F(Log, CutsTheTextAndNothingElse)
{
    RunAlone(World, [](const LogWorld&) {
        const utility::wstring whole(1022, u'a');
        const utility::wstring source(5000, u's');
        CLog* const log = CLog::GetInstance();
        EXPECT_EQ(log->LogInfo(u"%s"_w, u"Test"_w, whole.c_str()), 0);
        EXPECT_EQ(log->LogInfo(u"%sb"_w, u"Test"_w, whole.c_str()), 0);
        EXPECT_EQ(log->LogInfo(u"long source"_w, source.c_str()), 0);
    });
    const auto records = support::Records(World.Log);
    ASSERT_EQ(records.size(), 7U);
    EXPECT_EQ(records[2][5], std::string(1022, 'a'));
    EXPECT_EQ(records[3][5], std::string(1022, 'a'));
    EXPECT_EQ(records[4][4], std::string(5000, 's'));
}

TEST_F(Log, RollsOverWhenTheFamilyHasEnded)
{
    support::WriteFile(World.Previous, "older");
    support::WriteFile(World.Log, "old");
    const Gate opened(World.Folder / "opened");
    const Gate end(World.Folder / "end");
    Process first(World, [](const LogWorld& world) {
        CLog::GetInstance();
        Gate(world.Folder / "opened").Open();
        Gate(world.Folder / "end").Pass();
    });
    opened.Pass();
    EXPECT_EQ(support::ReadFile(World.Previous), "old");
    RunAlone(World, [](const LogWorld&) { CLog::GetInstance()->LogInfo(u"second"_w, u"Test"_w); });
    end.Open();
    first.Wait();
    EXPECT_EQ(Strings({"----------", "Log opened", "----------", "Log opened", "second", "Log closing", "-----------",
                       "Log closing", "-----------"}),
              support::Texts(World.Log));
    EXPECT_EQ(support::ReadFile(World.Previous), "old");
    RunAlone(World, [](const LogWorld&) { CLog::GetInstance(); });
    EXPECT_EQ(support::Texts(World.Previous).size(), 9U);
    EXPECT_EQ(support::Texts(World.Log).size(), 4U);
}

TEST_F(Log, FindsTheNameOfThePreviousFileInEveryFormOfPath)
{
    std::string slashes = World.Log;
    std::replace(slashes.begin(), slashes.end(), '\\', '/');
    std::string backslashes = slashes;
    std::replace(backslashes.begin(), backslashes.end(), '/', '\\');
    std::string mixed = backslashes;
    mixed[mixed.rfind('\\')] = '/';
    for (const std::string& path : {slashes, backslashes, mixed, std::string("App.log")}) {
        World.SetLog(path);
        support::WriteFile(World.Log, "old");
        std::filesystem::remove(World.Previous);
        RunAlone(World, [](const LogWorld& world) {
            std::filesystem::current_path(world.Folder.path());
            EXPECT_NE(CLog::GetInstance(), nullptr) << CLog::GetInitError();
        });
        EXPECT_EQ(support::ReadFile(World.Previous), "old") << path;
        EXPECT_EQ(support::Texts(World.Log).size(), 4U) << path;
    }
}

TEST_F(Log, OldFileThatCannotMoveIsAppendedTo)
{
    const std::string line("o\0l\0d\0\r\0\n\0", 10);
    std::filesystem::create_directory(World.Previous);
    // Behind its last line a writer that was killed may have left the front of a record.
    for (const std::string& stump : {std::string(), std::string("2\0000\0002", 5)}) {
        support::WriteFile(World.Log, line + stump);
        RunAlone(World, [](const LogWorld&) { CLog::GetInstance(); });
        const std::string content = support::ReadFile(World.Log);
        EXPECT_EQ(content.substr(0, line.size()), line);
        support::WriteFile(World.Folder / "appended", content.substr(line.size()));
        EXPECT_EQ(support::Texts(World.Folder / "appended"),
                  Strings({"----------", "Log opened", "Log closing", "-----------"}));
    }
    EXPECT_TRUE(std::filesystem::is_directory(World.Previous));
}

TEST_F(Log, AnotherNameOfTheFileDoesNotMoveItAwayUnderItsWriters)
{
    const Gate opened(World.Folder / "opened");
    const Gate end(World.Folder / "end");
    Process first(World, [](const LogWorld& world) {
        CLog* const log = CLog::GetInstance();
        Gate(world.Folder / "opened").Open();
        Gate(world.Folder / "end").Pass();
        EXPECT_EQ(log->LogInfo(u"still here"_w, u"Test"_w), 0);
    });
    opened.Pass();
    World.SetLog(World.Folder.path().string() + "/./App.log");
    RunAlone(World, [](const LogWorld&) { CLog::GetInstance(); });
    end.Open();
    first.Wait();
    EXPECT_EQ(support::Texts(World.Log).size(), 9U);
    EXPECT_FALSE(std::filesystem::exists(World.Previous));
}

TEST_F(Log, OpensAnewWithoutRollingItsOwnFileOver)
{
    RunAlone(World, [](const LogWorld& world) {
        CLog* const log = CLog::GetInstance();
        const int before = support::OpenHandles();
        for (int i = 0; i < 3; ++i)
            EXPECT_EQ(log->Initialise(), 0);
        EXPECT_EQ(log->LogInfo(u"the same file"_w, u"Test"_w), 0);
        EXPECT_EQ(support::OpenHandles(), before);

        // The first exception of a process may leave things in it that the runtime keeps.
        int whenClosed = 0;
        for (const bool first : {true, false}) {
            world.SetLog((world.Folder.path() / "missing" / "App.log").string());
            try {
                log->Initialise();
                ADD_FAILURE() << "opened a log in a missing folder";
            } catch (const CLog::log_exception& failure) {
                EXPECT_EQ(failure.ErrorCode, static_cast<LONG>(0x80070003));
            }
            EXPECT_EQ(log->LogInfo(u"closed"_w, u"Test"_w), static_cast<LONG>(0x80070006));
            EXPECT_TRUE(first || support::OpenHandles() == whenClosed);
            whenClosed = support::OpenHandles();
            world.SetLog(world.Log);
            EXPECT_EQ(log->Initialise(), 0);
            EXPECT_GT(support::OpenHandles(), whenClosed);
        }
        EXPECT_EQ(log->LogInfo(u"open again"_w, u"Test"_w), 0);
    });
    EXPECT_EQ(support::Texts(World.Log), Strings({"open again", "Log closing", "-----------"}));
}

TEST_F(Log, KeyOfTheFileCountsForAFurtherOpening)
{
    NameOther();
    RunAlone(World, [](const LogWorld&) {
        CLog::SetRegLogfilePath(u"Other"_w);
        CLog* const log = CLog::GetInstance();
        log->LogInfo(u"release's own"_w, u"Test"_w);
        CLog::SetRegLogfilePath(u"Other"_w);
        log->Initialise();
        log->LogInfo(u"other"_w, u"Test"_w);
        CLog::SetRegLogfilePath(u""_w);
        log->Initialise();
    });
    EXPECT_EQ(support::Texts(World.Folder / "Other.log"), Strings({"other"}));
    EXPECT_EQ(support::Texts(World.Previous), Strings({"----------", "Log opened", "release's own"}));
    EXPECT_EQ(support::Texts(World.Log), Strings({"Log closing", "-----------"}));
}

TEST_F(Log, KeyStaysWhileAnotherProcessChangesIts)
{
    NameOther();
    RunAlone(World, [](const LogWorld& world) {
        CLog* const log = CLog::GetInstance();
        const Gate held(world.Folder / "held");
        const Process holder(world, [](const LogWorld& sameWorld) {
            CreateMutexW(nullptr, TRUE, platform::Wide(u"SetRegLogfilePath.Mutex"_w));
            Gate(sameWorld.Folder / "held").Open();
            Gate(sameWorld.Folder / "never").Pass();
        });
        held.Pass();
        CLog::SetRegLogfilePath(u"Other"_w);
        log->Initialise();
        log->LogInfo(u"not moved"_w, u"Test"_w);
    });
    EXPECT_FALSE(std::filesystem::exists(World.Folder / "Other.log"));
}

TEST_F(Log, ThreadsAndProcessesNeverMix)
{
    constexpr int threads = 4;
    constexpr int each = 200;
    const auto write = [](const LogWorld& world) {
        CLog* const log = CLog::GetInstance();
        Gate(world.Folder / "opened").Open();
        Gate(world.Folder / "begin").Pass();
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
    const Gate opened(World.Folder / "opened");
    const Gate begin(World.Folder / "begin");
    Process one(World, write);
    Process other(World, write);
    opened.Pass();
    opened.Pass();
    begin.Open();
    begin.Open();
    EXPECT_EQ(one.Wait(), 0);
    EXPECT_EQ(other.Wait(), 0);
    std::map<std::string, int> next;
    int written = 0;
    for (const Fields& record : support::Records(World.Log)) {
        int thread = 0;
        int number = 0;
        if (std::sscanf(record[5].c_str(), "thread %d record %d", &thread, &number) != 2)
            continue;
        ++written;
        EXPECT_EQ(next[record[1] + record[2]]++, number);
    }
    EXPECT_EQ(written, 2 * threads * each);
}

TEST_F(Log, HolderCostsEachRecordASecondUntilItLetsGo)
{
    RunAlone(World, [](const LogWorld& world) {
        CLog* const log = CLog::GetInstance();
        const Gate held(world.Folder / "held");
        const Gate go(world.Folder / "go");
        Process holder(world, [](const LogWorld& sameWorld) {
            const HANDLE mutex = CreateMutexW(nullptr, FALSE, platform::Wide(sameWorld.MutexName().c_str()));
            EXPECT_EQ(GetLastError(), DWORD{ERROR_ALREADY_EXISTS}) << "every process derives one name";
            WaitForSingleObject(mutex, INFINITE);
            Gate(sameWorld.Folder / "held").Open();
            Gate(sameWorld.Folder / "go").Pass();
            ReleaseMutex(mutex);
        });
        held.Pass();
        EXPECT_EQ(log->LogInfo(u"lost"_w, u"Test"_w), static_cast<LONG>(0x80040302));
        go.Open();
        EXPECT_EQ(holder.Wait(), 0);
        EXPECT_EQ(log->LogInfo(u"goes on"_w, u"Test"_w), 0);
    });
    const Strings texts = support::Texts(World.Log);
    EXPECT_EQ(std::count(texts.begin(), texts.end(), "goes on"), 1);
    EXPECT_EQ(std::count(texts.begin(), texts.end(), "lost"), 0);
}

}  // namespace
