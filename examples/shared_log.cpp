// Example of the log: one file that several processes share.
//
// The program starts several processes of several threads each, and all of them log to the file that their settings
// name. One process is killed while it writes, and another takes its place. Then all processes end and start again,
// which moves the old file aside. At the end the program prints both files and checks them: every record whose call
// returned 0 is there once and whole.
//
//     shared_log [--all] [--keep] [settings.reg]
//
// LogRecord, LogUpToGoal and Work show what a program of the suite does with the library. The rest starts and checks
// the processes.
#include "tessmaru/log.h"
#include "tessmaru/settings.h"
#include "tessmaru/text.h"

#include "testkit/file_content.h"
#include "testkit/ledger.h"
#include "testkit/log_reader.h"
#include "testkit/paths.h"
#include "testkit/process_family.h"
#include "testkit/scratch_folder.h"
#include "testkit/settings_store.h"
#include "testkit/terminal.h"
#include "testkit/utf16.h"
#include "testkit/writer_reports.h"
#include "veltrix_settings.h"

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

using namespace utility::literals;
using utilities::CLog;

namespace {

constexpr unsigned Processes = 4;
constexpr unsigned Threads = 4;
constexpr unsigned Records = 24;   // of each thread that is not killed
constexpr unsigned Endless = ~0U;  // goal of the process that is killed
constexpr unsigned Victim = 2;
constexpr unsigned Replacement = 4;  // takes the victim's place
constexpr unsigned SecondFamily = 5;
constexpr unsigned AllProcesses = SecondFamily + Processes;

struct Options {
    bool All = false;
    bool Keep = false;
    std::string Settings;
};

// ---- A process of the suite

/// Writes record `number` of a thread. The number decides the level.
LONG LogRecord(CLog& log, unsigned process, unsigned thread, unsigned number)
{
    const unsigned short* site = u"Malm\u00F6 Nord"_w;
    const unsigned milliseconds = 3 * number + thread;
    switch (number % 4) {
        case 0:
            return log.LogError(u"p%u t%u n%u %s does not answer: 0x%08lX"_w, u"Poller"_w, process, thread, number,
                                site, 0x80070079U);
        case 1: return log.LogStatus(u"p%u t%u n%u poll of %s begins"_w, u"Poller"_w, process, thread, number, site);
        case 2:
            return log.LogInfo(u"p%u t%u n%u %s answered in %u ms"_w, u"Poller"_w, process, thread, number, site,
                               milliseconds);
        default:
            return log.LogWarn(u"p%u t%u n%u %s answered late, in %u ms"_w, u"Poller"_w, process, thread, number, site,
                               milliseconds);
    }
}

/// The work of one thread. A record counts as written when its call has returned 0.
void LogUpToGoal(CLog& log, unsigned process, unsigned thread, testkit::WriterReport& report)
{
    for (unsigned number = 1; number <= report.Goal; ++number) {
        const LONG code = LogRecord(log, process, thread, number);
        if (code != 0) {
            report.LastFailure = static_cast<std::uint32_t>(code);
            ++report.Failures;
            return;
        }
        report.Written = number;

        // A debug record names a bit of the mask. If the bit is off, the call writes nothing and returns 0.
        log.LogDebug(0, u"bit 0: frame %u holds %u octets"_w, u"Protocol"_w, number, 40 + thread);
        log.LogDebug(1, u"bit 1: frame %u holds %u octets"_w, u"Protocol"_w, number, 40 + thread);
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
}

/// The work of one process. The first GetInstance opens the log. When the program ends, the library writes the closing
/// records and closes the log.
int Work(const testkit::WriterReports& reports, unsigned process)
{
    CLog* log = CLog::GetInstance();
    if (log == nullptr) {
        std::fprintf(stderr, "process %u cannot open its log: 0x%08X\n", process,
                     static_cast<unsigned>(CLog::GetInitError()));
        return EXIT_FAILURE;
    }
    std::vector<std::thread> threads;
    for (unsigned thread = 0; thread < reports.threads(); ++thread)
        threads.emplace_back([&, thread] { LogUpToGoal(*log, process, thread, reports.At(process, thread)); });
    for (std::thread& thread : threads)
        thread.join();
    testkit::WaitToEnd();
    return EXIT_SUCCESS;
}

// ---- The settings and the log of this run

std::string ReadSettings(const std::string& path)
{
    if (path.empty())
        return VeltrixSettings;
    const std::string bytes = testkit::ReadFile(testkit::FromUtf8(path));
    const bool wide = bytes.starts_with("\xFF\xFE");
    return wide ? testkit::DecodeUtf16(std::string_view(bytes).substr(2)) : bytes;
}

/// Redirects the log that the settings name into the folder of this run. @return its path there.
std::filesystem::path PlaceLog(const testkit::SettingsStore& settings)
{
    const utility::wstring path = CSettingsRegistry().getLogPath();
    if (path.empty())
        throw std::runtime_error("the settings name no log file");
    return settings.PlaceLog({path.begin(), path.end()});
}

// ---- The sequence of events

class Families {
public:
    explicit Families(const testkit::ScratchFolder& scratch)
        : ReportsPath(scratch / "reports"), Reports(ReportsPath, AllProcesses, Threads)
    {
    }

    /// The first family of processes. Its process Victim is killed while it writes.
    void RunFirst()
    {
        testkit::ProcessFamily family;
        std::vector<testkit::Process*> processes;
        for (unsigned process = 0; process < Processes; ++process)
            processes.push_back(Start(family, process, process == Victim ? Endless : Records));
        WaitFor(family, Victim, Records / 2);
        processes[Victim]->Kill();
        Start(family, Replacement, Records);
        for (unsigned process = 0; process <= Replacement; ++process) {
            if (process != Victim)
                WaitFor(family, process, Records);
        }
        End(family);
    }

    /// The second family. Its first process finds the log of the first family and moves it aside.
    void RunSecond()
    {
        testkit::ProcessFamily family;
        for (unsigned process = SecondFamily; process < AllProcesses; ++process)
            Start(family, process, Records);
        for (unsigned process = SecondFamily; process < AllProcesses; ++process)
            WaitFor(family, process, Records);
        End(family);
    }

    const std::filesystem::path ReportsPath;
    const testkit::WriterReports Reports;

private:
    testkit::Process* Start(testkit::ProcessFamily& family, unsigned process, unsigned goal) const
    {
        for (unsigned thread = 0; thread < Threads; ++thread)
            Reports.At(process, thread).Goal = goal;
        return &family.Start({"--work", testkit::ToUtf8(ReportsPath), std::to_string(process)});
    }

    /// Waits until each thread of a process has written `records` records.
    void WaitFor(const testkit::ProcessFamily& family, unsigned process, unsigned records) const
    {
        for (unsigned thread = 0; thread < Threads; ++thread) {
            const testkit::WriterReport& report = Reports.At(process, thread);
            while (report.Written < records) {
                if (report.Failures != 0 || !family.AllRun())
                    throw std::runtime_error("a process could not log; the last code was " + Code(report.LastFailure));
                std::this_thread::sleep_for(std::chrono::milliseconds(1));
            }
        }
    }

    static void End(testkit::ProcessFamily& family)
    {
        if (!family.End())
            throw std::runtime_error("a process ended with a failure");
    }

    static std::string Code(unsigned code)
    {
        char text[16];
        std::snprintf(text, sizeof text, "0x%08X", code);
        return text;
    }
};

// ---- Printing and checking the files

bool ColourIsWanted()
{
    const char* refused = std::getenv("NO_COLOR");
    return refused == nullptr || *refused == '\0';
}

const char* ColourOf(std::string_view level)
{
    if (level == " ERR")
        return "\x1b[31m";
    if (level == "WARN")
        return "\x1b[33m";
    if (level == "INFO")
        return "\x1b[32m";
    return level == "DBUG" ? "\x1b[36m" : "\x1b[1m";
}

/// Prints the file's records, without those in the middle unless `all` is set.
void Show(const std::filesystem::path& path, const testkit::LogFile& file, bool all)
{
    constexpr std::size_t head = 14;
    constexpr std::size_t tail = 10;
    const bool colour = testkit::PrepareTerminal() && ColourIsWanted();
    const std::vector<testkit::Record>& records = file.Records();
    std::printf("%s\n", testkit::ToUtf8(path.filename()).c_str());
    for (std::size_t i = 0; i < records.size(); ++i) {
        if (!all && i == head && records.size() > head + tail) {
            i = records.size() - tail;
            std::printf("    ... %zu records left out, --all shows them ...\n", i - head);
        }
        const std::string_view line = records[i].Line;
        std::printf("%s%.*s%s\n", colour ? ColourOf(records[i].Level) : "", static_cast<int>(line.size()), line.data(),
                    colour ? "\x1b[0m" : "");
    }
    std::printf("\n");
}

/// Prints what the check of one file found. False if a record is missing or torn.
bool Check(const std::filesystem::path& path, const testkit::LogFile& file, testkit::Ledger ledger)
{
    std::size_t torn = file.Torn().size();
    for (const testkit::Record& record : file.Records()) {
        if (record.Text.find(" | ") != std::string_view::npos)
            ++torn;  // a record inside another: no text of this program has a separator
        else if (const auto mark = testkit::ReadMark(record.Text))
            ledger.Enter(*mark);
    }
    const testkit::Findings found = ledger.Close();
    std::printf("%-18s %7u %7zu %5u %5zu %11u\n", testkit::ToUtf8(path.filename()).c_str(), found.Written,
                file.Records().size(), found.Lost, torn, found.Duplicated + found.Misplaced + found.Unexpected);
    if (found.Unreported != 0)
        std::printf("    and %u whole records that the killed process could not report any more\n", found.Unreported);
    return found.IsClean() && torn == 0;
}

bool ShowAndCheck(const std::filesystem::path& log, const testkit::WriterReports& reports, bool all)
{
    std::filesystem::path previous = log;
    previous.replace_filename(std::filesystem::path("Previous ") += log.filename());
    const testkit::LogFile first(previous);
    const testkit::LogFile second(log);
    Show(previous, first, all);
    Show(log, second, all);

    std::vector<bool> killed(AllProcesses);
    killed[Victim] = true;
    std::printf("%-18s %7s %7s %5s %5s %11s\n", "", "written", "records", "lost", "torn", "out of turn");
    const bool firstIsClean = Check(previous, first, testkit::Ledger(reports, 0, SecondFamily, killed));
    const bool secondIsClean = Check(log, second, testkit::Ledger(reports, SecondFamily, AllProcesses, killed));
    std::printf("\nwritten: calls that returned 0, without debug records; records: all whole records\n");
    return firstIsClean && secondIsClean;
}

int Run(const Options& options)
{
    const std::string text = ReadSettings(options.Settings);
    testkit::ScratchFolder scratch;
    const testkit::SettingsStore settings(scratch);
    settings.Set(text);
    const std::filesystem::path log = PlaceLog(settings);
    Families families(scratch);
    std::printf("%u processes of %u threads log to %s\n\n", Processes, Threads, testkit::ToUtf8(log).c_str());
    families.RunFirst();
    families.RunSecond();
    const bool clean = ShowAndCheck(log, families.Reports, options.All);
    if (options.Keep)
        scratch.Keep();
    return clean ? EXIT_SUCCESS : EXIT_FAILURE;
}

}  // namespace

int main(int count, char** arguments)
try {
    const std::vector<std::string> words = testkit::Arguments(count, arguments);
    if (words.size() == 3 && words[0] == "--work") {
        testkit::JoinSettingsStore();
        return Work(testkit::WriterReports(testkit::FromUtf8(words[1]), AllProcesses, Threads),
                    static_cast<unsigned>(std::stoul(words[2])));
    }

    Options options;
    for (const std::string& word : words) {
        if (word == "--all")
            options.All = true;
        else if (word == "--keep")
            options.Keep = true;
        else if (word.starts_with("-") || !options.Settings.empty())
            throw std::invalid_argument("usage: shared_log [--all] [--keep] [settings.reg]");
        else
            options.Settings = word;
    }
    return Run(options);
} catch (const std::exception& failure) {
    std::fprintf(stderr, "shared_log: %s\n", failure.what());
    return EXIT_FAILURE;
}
