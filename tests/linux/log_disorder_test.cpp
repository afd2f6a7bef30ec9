// Writers that no lock keeps apart: an account that writes to the mutex's page, and families with different mutexes.
// Their records may change places, but none is lost or mixed with another.
#include "system.h"
#include "tessmaru/log.h"
#include "testkit/environment_variable.h"
#include "testkit/file_content.h"
#include "testkit/gate.h"
#include "testkit/ledger.h"
#include "testkit/linux/child.h"
#include "testkit/log_machine.h"
#include "testkit/whole_log.h"

#include <deque>
#include <random>
#include <thread>

#include <fcntl.h>

using namespace utility::literals;
using testkit::Child;
using testkit::Gate;
using testkit::LogMachine;
using utilities::CLog;

namespace {

constexpr unsigned Writers = 4;
constexpr unsigned Threads = 2;
constexpr unsigned Records = 400;

class LogDisorder : public testing::Test {
protected:
    /// Writes the records of one thread, and reports those that were acknowledged.
    void WriteRecords(CLog* log, unsigned process, unsigned thread) const
    {
        testkit::WriterReport& report = Reports.At(process, thread);
        for (unsigned number = 1; number <= Records && report.Failures == 0;) {
            const LONG code = log->LogInfo(u"p%u t%u n%u "_w, u"Test"_w, process, thread, number);
            if (code == 0)
                report.Written = number++;
            else if (code != static_cast<LONG>(0x80040302))
                ++report.Failures;
        }
    }

    /// The work of a process. It keeps the log open until all have written, so that no other process rolls it over.
    void Write(unsigned process) const
    {
        CLog* const log = CLog::GetInstance();
        Opened.Open();
        Begin.Pass();
        std::thread other([&] { WriteRecords(log, process, 1); });
        WriteRecords(log, process, 0);
        other.join();
        Written.Open();
        End.Pass();
    }

    /// Runs the writers, each after `prepare(number)`, and `meanwhile` beside them.
    template <class Prepare, class Meanwhile>
    void RunWriters(Prepare prepare, Meanwhile meanwhile) const
    {
        std::deque<Child> writers;
        for (unsigned process = 0; process < Writers; ++process) {
            writers.emplace_back([&, process] {
                prepare(process);
                Write(process);
            });
            Opened.Pass();
        }
        const Child disturber(meanwhile);
        for (unsigned process = 0; process < Writers; ++process)
            Begin.Open();
        for (unsigned process = 0; process < Writers; ++process)
            Written.Pass();
        for (unsigned process = 0; process < Writers; ++process)
            End.Open();
        for (Child& writer : writers)
            EXPECT_EQ(writer.Wait(), 0);
    }

    void CheckLog() const
    {
        testkit::Ledger ledger(Reports, 0, Writers, std::vector<bool>(Writers));
        const testkit::LogFile log(Machine.Log);
        for (const testkit::Record& record : log.Records()) {
            if (const auto mark = testkit::ReadMark(record.Text))
                ledger.Enter(*mark);
        }
        const testkit::Findings findings = ledger.Close();
        EXPECT_EQ(findings.Written, Writers * Threads * Records);
        EXPECT_TRUE(findings.IsClean()) << findings.Lost << " lost, " << findings.Duplicated << " duplicated, "
                                        << findings.Misplaced << " misplaced, " << findings.Unexpected << " unexpected";
        // A writer that finds a line of another one incomplete, while it grows, adds a line end.
        for (const std::string_view line : log.Torn())
            EXPECT_EQ(line, "");
        EXPECT_EQ(testkit::ReadFile(Machine.Log).find(std::string(3, '\0')), std::string::npos);
        EXPECT_FALSE(std::filesystem::exists(Machine.Previous)) << "an open log is not moved";
    }

    const LogMachine Machine;
    const testkit::WriterReports Reports{Machine.Folder / "reports", Writers, Threads};
    const Gate Opened{Machine.Folder / "opened"};
    const Gate Begin{Machine.Folder / "begin"};
    const Gate Written{Machine.Folder / "written"};
    const Gate End{Machine.Folder / "end"};
};

/// Writes to the words of all mutexes of a folder until it is killed: free, abandoned, or owned by any number.
void SpoilMutexes(const std::filesystem::path& folder)
{
    constexpr uid_t account = 65533;
    std::vector<int> pages;
    for (const auto& entry : std::filesystem::directory_iterator(folder)) {
        if (entry.path().filename().string().starts_with("veltrix-mutex-"))
            pages.push_back(open(entry.path().c_str(), O_RDWR | O_CLOEXEC));
    }
    if (geteuid() == 0 && setresuid(account, account, account) != 0)
        std::abort();
    std::mt19937 random(1);
    for (;;) {
        constexpr std::uint32_t words[] = {0, 0, 0, 1U << 30, 0x80000000, 12345};
        const std::uint32_t word = words[random() % std::size(words)];
        for (const int page : pages) {
            constexpr off_t offsetOfWord = 64;
            if (pwrite(page, &word, sizeof word, offsetOfWord) != sizeof word)
                std::abort();
        }
        std::this_thread::sleep_for(std::chrono::microseconds(random() % 50));
    }
}

TEST_F(LogDisorder, AnAccountThatWritesToTheMutexCostsNoRecord)
{
    RunWriters([](unsigned) {}, [this] { SpoilMutexes(Machine.Folder.path()); });
    CheckLog();
}

TEST_F(LogDisorder, FamiliesWithDifferentMutexesLoseNoRecord)
{
    const std::string otherSettings = Machine.Folder / "other.reg";
    Machine.SetLog(Machine.Folder.path().string() + "/./App.log");
    std::filesystem::copy_file(Machine.Folder / "registry.reg", otherSettings);
    Machine.SetLog(Machine.Log);
    const std::string otherFolder = Machine.Folder / "run";
    std::filesystem::create_directory(otherFolder);
    RunWriters(
        [&](unsigned process) {
            if (process % 2 != 0)
                testkit::SetVariable("VELTRIX_RUNTIME", otherFolder);
            if (process / 2 != 0)
                testkit::SetVariable("VELTRIX_REGISTRY", otherSettings);
        },
        [] { pause(); });
    CheckLog();
}

}  // namespace
