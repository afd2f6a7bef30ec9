#include "tessmaru/log.h"
#include "log_world.h"
#include "tessmaru/settings.h"

#include <algorithm>
#include <map>
#include <regex>
#include <thread>

using namespace utility::literals;
using support::Child;
using support::Fields;
using support::Gate;
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

int OpenDescriptors()
{
    int count = 0;
    for ([[maybe_unused]] const auto& entry : std::filesystem::directory_iterator("/proc/self/fd"))
        ++count;
    return count;
}

class Log : public testing::Test {
protected:
    const support::LogWorld World;
};

TEST_F(Log, WritesWholeRecordsFromOpeningToClosing)
{
    Child writer([] {
        CLog* const log = CLog::GetInstance();
        lateWriter.Armed = true;
        const int failures = log->LogError(u"Failed with %08X"_w, u"Radio"_w, 0xC0DEU) |
                             log->LogWarn(u"%s %S"_w, u"Radio"_w, u"wide"_w, "narrow") | log->LogInfo(u""_w, u""_w) |
                             log->LogStatus(u"%ld of %I64d"_w, u"ExactTwelve!"_w, LONG{-1}, LONGLONG{1} << 40) |
                             log->LogInfo(u"%d%%"_w, u"ThirteenUnits"_w, 100);
        std::exit(failures);
    });
    const pid_t process = writer.pid();
    EXPECT_EQ(writer.Wait(), 0);

    char id[9];
    std::snprintf(id, sizeof id, "%08x", static_cast<unsigned>(process));
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
        EXPECT_TRUE(std::regex_match(record[0], std::regex(R"(\d{4}-\d\d-\d\d \d\d:\d\d:\d\d\.\d{3})"))) << record[0];
        EXPECT_EQ(record[1], id);
        EXPECT_EQ(record[2], id) << "the first thread bears the id of its process";
        EXPECT_EQ(record[3] + " | " + record[4], levelsAndTexts[i].first);
        EXPECT_EQ(record[5], levelsAndTexts[i].second);
    }
    EXPECT_EQ(support::ReadFile(World.Log).substr(0, 2), std::string("2\0", 2)) << "no byte-order mark";
    EXPECT_FALSE(std::filesystem::exists(World.Previous)) << "there was nothing to move";
}

TEST_F(Log, CutsTheTextAndNothingElse)
{
    const utility::wstring whole(1022, u'a');
    const utility::wstring source(5000, u's');
    RunAlone([&] {
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
    const Gate opened;
    const Gate end;
    Child first([&] {
        CLog::GetInstance();
        opened.Open();
        end.Pass();
        std::exit(0);
    });
    opened.Pass();
    EXPECT_EQ(support::ReadFile(World.Previous), "old");
    RunAlone([] { CLog::GetInstance()->LogInfo(u"second"_w, u"Test"_w); });
    end.Open();
    first.Wait();
    EXPECT_EQ(Strings({"----------", "Log opened", "----------", "Log opened", "second", "Log closing", "-----------",
                       "Log closing", "-----------"}),
              support::Texts(World.Log));
    EXPECT_EQ(support::ReadFile(World.Previous), "old");
    RunAlone([] { CLog::GetInstance(); });
    EXPECT_EQ(support::Texts(World.Previous).size(), 9U);
    EXPECT_EQ(support::Texts(World.Log).size(), 4U);
}

TEST_F(Log, FindsTheNameOfThePreviousFileInEveryFormOfPath)
{
    const std::string folder = World.Folder.path().string();
    std::string windows = folder;
    std::replace(windows.begin(), windows.end(), '/', '\\');
    const std::string devices =
        "[HKEY_LOCAL_MACHINE\\SYSTEM\\CurrentControlSet\\Control\\Session Manager\\DOS Devices]\r\n\"D:\"=\"" + folder +
        "\"\r\n";
    for (const std::string& path : {folder + "/App.log", windows + "\\App.log", "C:" + windows + "\\App.log",
                                    std::string("D:\\App.log"), std::string("App.log"), windows + "/App.log"}) {
        World.SetLog(path, "", devices);
        support::WriteFile(World.Log, "old");
        std::filesystem::remove(World.Previous);
        RunAlone([&] {
            std::filesystem::current_path(folder);
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
        RunAlone([] { CLog::GetInstance(); });
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
    const Gate opened;
    const Gate end;
    Child first([&] {
        CLog* const log = CLog::GetInstance();
        opened.Open();
        end.Pass();
        log->LogInfo(u"still here"_w, u"Test"_w);
        std::exit(0);
    });
    opened.Pass();
    World.SetLog(World.Folder.path().string() + "/./App.log");
    RunAlone([] { CLog::GetInstance(); });
    end.Open();
    first.Wait();
    EXPECT_EQ(support::Texts(World.Log).size(), 9U);
    EXPECT_FALSE(std::filesystem::exists(World.Previous));
}

TEST_F(Log, OpensAnewWithoutRollingItsOwnFileOver)
{
    RunAlone([&] {
        CLog* const log = CLog::GetInstance();
        const int before = OpenDescriptors();
        for (int i = 0; i < 3; ++i)
            EXPECT_EQ(log->Initialise(), 0);
        EXPECT_EQ(log->LogInfo(u"the same file"_w, u"Test"_w), 0);
        EXPECT_EQ(OpenDescriptors(), before);

        World.SetLog(World.Folder / "missing/App.log");
        try {
            log->Initialise();
            ADD_FAILURE() << "opened a log in a missing folder";
        } catch (const CLog::log_exception& failure) {
            EXPECT_EQ(failure.ErrorCode, static_cast<LONG>(0x80070003));
        }
        EXPECT_EQ(log->LogInfo(u"closed"_w, u"Test"_w), static_cast<LONG>(0x80070006));
        EXPECT_LT(OpenDescriptors(), before);

        World.SetLog(World.Log);
        EXPECT_EQ(log->Initialise(), 0);
        EXPECT_EQ(log->LogInfo(u"open again"_w, u"Test"_w), 0);
    });
    EXPECT_EQ(support::Texts(World.Previous), Strings({"----------", "Log opened", "the same file"}));
    EXPECT_EQ(support::Texts(World.Log), Strings({"open again", "Log closing", "-----------"}));
}

TEST_F(Log, KeyOfTheFileCountsForAFurtherOpening)
{
    World.SetLog(World.Log, "",
                 "[HKEY_LOCAL_MACHINE\\Other]\r\n\"FilePath\"=\"" + (World.Folder / "Other.log") + "\"\r\n");
    RunAlone([] {
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
    World.SetLog(World.Log, "",
                 "[HKEY_LOCAL_MACHINE\\Other]\r\n\"FilePath\"=\"" + (World.Folder / "Other.log") + "\"\r\n");
    RunAlone([] {
        CLog* const log = CLog::GetInstance();
        const Gate held;
        Child holder([&] {
            CreateMutexW(nullptr, TRUE, u"SetRegLogfilePath.Mutex"_w);
            held.Open();
            pause();
            return 0;
        });
        held.Pass();
        CLog::SetRegLogfilePath(u"Other"_w);
        log->Initialise();
        log->LogInfo(u"not moved"_w, u"Test"_w);
    });
    EXPECT_FALSE(std::filesystem::exists(World.Folder / "Other.log"));
}

TEST_F(Log, ForkedChildWritesUnderItsOwnIdAndKeepsTheFamily)
{
    const Gate end;
    const Gate parentEnded;
    Child parent([&] {
        CLog* const log = CLog::GetInstance();
        if (fork() != 0)
            std::exit(0);
        parentEnded.Pass();
        log->LogInfo(u"%u"_w, u"Child"_w, static_cast<unsigned>(getpid()));
        end.Open();
        _exit(0);
    });
    parent.Wait();
    RunAlone([] { CLog::GetInstance()->LogInfo(u"appended"_w, u"Test"_w); });
    parentEnded.Open();
    end.Pass();
    bool found = false;
    for (const Fields& record : support::Records(World.Log)) {
        if (record[4] != "       Child")
            continue;
        found = true;
        EXPECT_EQ(std::stoul(record[1], nullptr, 16), std::stoul(record[5]));
        EXPECT_EQ(std::stoul(record[2], nullptr, 16), std::stoul(record[5]));
    }
    EXPECT_TRUE(found);
    EXPECT_FALSE(std::filesystem::exists(World.Previous));
}

TEST_F(Log, ThreadsAndProcessesNeverMix)
{
    constexpr int threads = 4;
    constexpr int each = 200;
    const auto write = [] {
        std::vector<std::thread> writers;
        for (int thread = 0; thread < threads; ++thread) {
            writers.emplace_back([thread] {
                for (int i = 0; i < each; ++i)
                    EXPECT_EQ(CLog::GetInstance()->LogInfo(u"thread %d record %d"_w, u"Test"_w, thread, i), 0);
            });
        }
        for (std::thread& writer : writers)
            writer.join();
    };
    const Gate end;
    Child other([&] {
        write();
        end.Pass();
        return testing::Test::HasFailure() ? 1 : 0;
    });
    RunAlone(write);
    end.Open();
    EXPECT_EQ(other.Wait(), 0);
    std::map<std::string, int> next;
    std::size_t written = 0;
    for (const Fields& record : support::Records(World.Log)) {
        int thread = 0;
        int number = 0;
        if (std::sscanf(record[5].c_str(), "thread %d record %d", &thread, &number) != 2)
            continue;
        ++written;
        EXPECT_EQ(next[record[1] + record[2]]++, number);
    }
    if (!std::filesystem::exists(World.Previous)) {
        EXPECT_EQ(written, 2U * threads * each);
    }
}

}  // namespace
