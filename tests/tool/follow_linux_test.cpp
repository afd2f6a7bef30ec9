// The tool follows and rotates a log while processes write to it.
#include "tessmaru/log.h"
#include "testkit/file_content.h"
#include "testkit/ledger.h"
#include "testkit/linux/child.h"
#include "testkit/log_machine.h"
#include "testkit/test_process.h"
#include "testkit/utf16.h"

#include <chrono>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <optional>
#include <sstream>
#include <thread>

#include <fcntl.h>

namespace {

using namespace testkit;
using utilities::CLog;
using namespace utility::literals;
using namespace std::chrono_literals;

/// Starts the tool with its output appended to a file of the machine's folder.
Child RunTool(const LogMachine& machine, std::vector<std::string> words)
{
    return Child([&machine, words = std::move(words)]() mutable {
        const int out = open((machine.Folder / "out").c_str(), O_WRONLY | O_APPEND | O_CREAT, 0600);
        const int err = open((machine.Folder / "err").c_str(), O_WRONLY | O_APPEND | O_CREAT, 0600);
        dup2(out, STDOUT_FILENO);
        dup2(err, STDERR_FILENO);
        std::vector<char*> pointers;
        words.insert(words.begin(), {TESSMARU_TOOL, "log"});
        for (std::string& word : words)
            pointers.push_back(word.data());
        pointers.push_back(nullptr);
        execv(TESSMARU_TOOL, pointers.data());
        return 99;
    });
}

std::string TextOf(const LogMachine& machine, const char* file)
{
    const auto path = machine.Folder / file;
    return std::filesystem::exists(path) ? ReadFile(path) : std::string();
}

/// Waits until a file of the machine has a text. A test that waits in vain ends at its time limit.
void WaitFor(const LogMachine& machine, const char* file, const std::string& text)
{
    while (TextOf(machine, file).find(text) == std::string::npos)
        std::this_thread::sleep_for(5ms);
}

/// Appends to the log in one step, as a writer does.
void Append(const LogMachine& machine, const std::string& text)
{
    std::ofstream(machine.Log, std::ios::binary | std::ios::app) << EncodeUtf16(text);
}

std::string Line(const std::string& text)
{
    return "2026-11-22 09:09:12.045 | 00000bee | 00000bef | INFO |         Test | " + text + "\r\n";
}

int End(Child& process)
{
    kill(static_cast<pid_t>(process.id()), SIGTERM);
    return process.Wait();
}

/// The texts that the tool has shown, in order.
std::vector<std::string> Shown(const LogMachine& machine)
{
    std::vector<std::string> texts;
    std::istringstream lines(TextOf(machine, "out"));
    for (std::string line; std::getline(lines, line);)
        texts.push_back(line.substr(line.find(" | ") == std::string::npos ? 0 : line.rfind(" | ") + 3));
    return texts;
}

TEST(Follow, ReadsEveryFileToItsEndAndInOrder)
{
    const LogMachine machine;
    Child follow = RunTool(machine, {"follow"});
    WaitFor(machine, "err", "waiting for");
    Append(machine, Line("first") + Line("second"));
    WaitFor(machine, "out", "second");

    // Moved, and still written to.
    std::filesystem::rename(machine.Log, machine.Folder / "elsewhere");
    std::ofstream(machine.Folder / "elsewhere", std::ios::binary | std::ios::app) << EncodeUtf16(Line("late"));
    Append(machine, Line("new file"));
    WaitFor(machine, "out", "new file");

    // Removed, with a record that has no end.
    Append(machine, Line("before the removal") + "2026-11-22 09:0");
    WaitFor(machine, "out", "before the removal");
    std::filesystem::remove(machine.Log);
    Append(machine, Line("after the removal"));
    WaitFor(machine, "out", "after the removal");

    std::filesystem::resize_file(machine.Log, 0);
    WaitFor(machine, "err", "truncated");
    Append(machine, Line("after the truncation"));
    WaitFor(machine, "out", "after the truncation");
    EXPECT_EQ(End(follow), 0);
    EXPECT_EQ(Shown(machine),
              (std::vector<std::string>{"first", "second", "late", "new file", "before the removal",
                                        "    + 2026-11-22 09:0", "after the removal", "after the truncation"}));
}

TEST(Follow, ShowsARecordWhenItIsComplete)
{
    const LogMachine machine;
    Append(machine, Line("old") + Line("last"));
    Child follow = RunTool(machine, {"follow", "-n", "1", "--grep", "a"});
    WaitFor(machine, "out", "last");
    const std::string whole = Line("a part");
    Append(machine, whole.substr(0, 30));
    Append(machine, whole.substr(30) + Line("other") + Line("a new one"));
    WaitFor(machine, "out", "a new one");
    EXPECT_EQ(End(follow), 0);
    EXPECT_EQ(Shown(machine), (std::vector<std::string>{"last", "a part", "a new one"}));
}

TEST(Follow, GoesOnOverRolloversOfTheLog)
{
    const LogMachine machine;
    const auto write = [](const LogMachine&) {
        EXPECT_EQ(CLog::GetInstance()->LogInfo(u"of process %d"_w, u"Test"_w, getpid()), 0);
    };
    Child follow = RunTool(machine, {"follow", "--cursor", (machine.Folder / "cursor").string(), "--source", "Test"});
    std::vector<std::string> expected;
    for (int i = 0; i < 3; ++i) {
        TestProcess writer(machine, write);
        expected.push_back("of process " + std::to_string(writer.id()));
        ASSERT_EQ(writer.Wait(), 0);
        WaitFor(machine, "out", expected.back());
    }
    EXPECT_EQ(End(follow), 0);
    EXPECT_EQ(Shown(machine), expected);

    // A rollover while the tool does not run: the rest is in the previous file.
    for (int i = 0; i < 2; ++i) {
        TestProcess writer(machine, write);
        expected.push_back("of process " + std::to_string(writer.id()));
        ASSERT_EQ(writer.Wait(), 0);
        if (i == 0)
            std::filesystem::rename(machine.Log, machine.Log + ".1");
    }
    Child again = RunTool(machine, {"follow", "--cursor", (machine.Folder / "cursor").string(), "--source", "Test"});
    WaitFor(machine, "out", expected.back());
    EXPECT_EQ(End(again), 0);
    EXPECT_EQ(Shown(machine), expected);
}

constexpr unsigned Writers = 2;

WriterReports ReportsOf(const LogMachine& machine)
{
    return {machine.Folder / "reports", Writers, 1};
}

/// Writes until the report says that it is enough.
template <unsigned Number>
void WriteRecords(const LogMachine& machine)
{
    const WriterReports reports = ReportsOf(machine);
    WriterReport& report = reports.At(Number, 0);
    CLog* const log = CLog::GetInstance();
    while (report.Goal == 0) {
        ASSERT_EQ(log->LogInfo(u"p%u t0 n%u "_w, u"Test"_w, Number, report.Written + 1), 0);
        if (++report.Written % 8 == 0)
            std::this_thread::sleep_for(1ms);
    }
}

/// Checks the records of the given texts, which may repeat, against the reports.
Findings Check(const LogMachine& machine, const std::vector<std::string>& texts)
{
    Ledger ledger(ReportsOf(machine), 0, Writers, std::vector<bool>(Writers));
    std::vector<unsigned> highest(Writers);
    for (const std::string& text : texts) {
        const auto mark = ReadMark(text);
        if (!mark || mark->Process >= Writers || mark->Number <= highest[mark->Process])
            continue;
        highest[mark->Process] = mark->Number;
        ledger.Enter(*mark);
    }
    return ledger.Close();
}

TEST(Follow, LosesNoRecordOverRotationsAndKills)
{
    const LogMachine machine;
    const std::vector<std::string> words = {"follow", "--cursor", (machine.Folder / "cursor").string()};
    std::optional<Child> follow(RunTool(machine, words));
    WaitFor(machine, "cursor", "\n");
    TestProcess first(machine, WriteRecords<0>);
    TestProcess second(machine, WriteRecords<1>);
    for (int i = 0; i < 4; ++i) {
        // The writers make the next file in the next second.
        while (!std::filesystem::exists(machine.Log) || std::filesystem::file_size(machine.Log) == 0)
            std::this_thread::sleep_for(5ms);
        Child rotate = RunTool(machine, {"rotate", "--keep", "20"});
        follow->Kill();
        follow.emplace(RunTool(machine, words));
        EXPECT_EQ(rotate.Wait(), 0);
    }
    const WriterReports reports = ReportsOf(machine);
    for (unsigned n = 0; n < Writers; ++n)
        reports.At(n, 0).Goal = 1;
    EXPECT_EQ(first.Wait(), 0);
    EXPECT_EQ(second.Wait(), 0);
    for (unsigned n = 0; n < Writers; ++n)
        WaitFor(machine, "out", "p" + std::to_string(n) + " t0 n" + std::to_string(reports.At(n, 0).Written) + " ");
    EXPECT_EQ(End(*follow), 0);
    const Findings findings = Check(machine, Shown(machine));
    EXPECT_TRUE(findings.IsClean()) << "lost " << findings.Lost << ", misplaced " << findings.Misplaced;
    EXPECT_EQ(findings.Written, reports.At(0, 0).Written + reports.At(1, 0).Written);
}

}  // namespace
