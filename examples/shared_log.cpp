// One log file, shared by a family of processes.
//
// The program starts several processes of several threads each, and all of them log to the one file that their
// settings name. One process is killed in the middle of its writing and started again. Then the family ends
// and starts once more, which moves the old file aside. At the end the program shows both files and checks
// them: every record whose call gave 0 stands there once and whole.
//
//     shared_log [--all] [--keep] [settings.reg]
//
// What a program of the suite does with the library stands in Work and LogRecord. The rest is the story around.
#include "tessmaru/log.h"
#include "tessmaru/settings.h"
#include "tessmaru/text.h"

#include "tools/family.h"
#include "tools/ledger.h"
#include "tools/log_records.h"
#include "tools/terminal.h"
#include "tools/world.h"
#include "veltrix_settings.h"

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <fstream>
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

/// Writes record `number` of a thread. The level follows from the number.
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

/// One thread's work. A record counts as written when its call has given 0.
void LogUpToGoal(CLog& log, unsigned process, unsigned thread, tools::Report& report)
{
    for (unsigned number = 1; number <= report.Goal; ++number) {
        const LONG code = LogRecord(log, process, thread, number);
        if (code != 0) {
            report.LastFailure = static_cast<std::uint32_t>(code);
            ++report.Failures;
            return;
        }
        report.Written = number;

        // A debug record names a bit of the mask. Where that bit is off the call writes nothing and gives 0.
        log.LogDebug(0, u"bit 0: frame %u holds %u octets"_w, u"Protocol"_w, number, 40 + thread);
        log.LogDebug(1, u"bit 1: frame %u holds %u octets"_w, u"Protocol"_w, number, 40 + thread);
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
}

/// A process opens the log with its first GetInstance. It need not close it: the library writes the closing
/// records when the program ends.
int Work(const tools::Board& board, unsigned process)
{
    CLog* log = CLog::GetInstance();
    if (log == nullptr) {
        std::fprintf(stderr, "process %u cannot open its log: 0x%08X\n", process,
                     static_cast<unsigned>(CLog::GetInitError()));
        return EXIT_FAILURE;
    }
    std::vector<std::thread> threads;
    for (unsigned thread = 0; thread < board.Threads(); ++thread)
        threads.emplace_back([&, thread] { LogUpToGoal(*log, process, thread, board.At(process, thread)); });
    for (std::thread& thread : threads)
        thread.join();
    tools::WaitToLeave();
    return EXIT_SUCCESS;
}

// ---- The world of this run: settings and log of its own

std::string ReadSettings(const std::string& path)
{
    if (path.empty())
        return VeltrixSettings;
    std::ifstream file(tools::FromUtf8(path), std::ios::binary);
    if (!file)
        throw std::runtime_error("cannot read " + path);
    const std::string bytes{std::istreambuf_iterator<char>(file), {}};
    const bool wide = bytes.starts_with("\xFF\xFE");
    return wide ? tools::DecodeUtf16(std::string_view(bytes).substr(2)) : bytes;
}

/// Gives the log that the settings name a place in this run's folder. Its path there.
std::filesystem::path PlaceLog(const tools::World& world)
{
    const utility::wstring path = CSettingsRegistry().getLogPath();
    if (path.empty())
        throw std::runtime_error("the settings name no log file");
    return world.PlaceLog({path.begin(), path.end()});
}

// ---- The story

class Story {
public:
    explicit Story(const tools::ScratchFolder& scratch)
        : BoardPath(scratch / "board"), Board(BoardPath, AllProcesses, Threads)
    {
    }

    /// The first family; its process Victim is killed while it writes.
    void FamilyWithAKill()
    {
        tools::Family family;
        std::vector<std::uint32_t> processes;
        for (unsigned process = 0; process < Processes; ++process)
            processes.push_back(Start(family, process, process == Victim ? Endless : Records));
        WaitFor(family, Victim, Records / 2);
        family.Kill(processes[Victim]);
        Start(family, Replacement, Records);
        for (unsigned process = 0; process <= Replacement; ++process) {
            if (process != Victim)
                WaitFor(family, process, Records);
        }
        End(family);
    }

    /// The family once more: its first process finds the log of the family before, and moves it aside.
    void FamilyAgain()
    {
        tools::Family family;
        for (unsigned process = SecondFamily; process < AllProcesses; ++process)
            Start(family, process, Records);
        for (unsigned process = SecondFamily; process < AllProcesses; ++process)
            WaitFor(family, process, Records);
        End(family);
    }

    const std::filesystem::path BoardPath;
    const tools::Board Board;

private:
    std::uint32_t Start(tools::Family& family, unsigned process, unsigned goal) const
    {
        for (unsigned thread = 0; thread < Threads; ++thread)
            Board.At(process, thread).Goal = goal;
        return family.Start({"--work", tools::ToUtf8(BoardPath), std::to_string(process)});
    }

    /// Waits until each thread of a process has written so many records.
    void WaitFor(const tools::Family& family, unsigned process, unsigned records) const
    {
        for (unsigned thread = 0; thread < Threads; ++thread) {
            const tools::Report& report = Board.At(process, thread);
            while (report.Written < records) {
                if (report.Failures != 0 || !family.AllRun())
                    throw std::runtime_error("a process could not log; the last code was " + Code(report.LastFailure));
                std::this_thread::sleep_for(std::chrono::milliseconds(1));
            }
        }
    }

    static void End(tools::Family& family)
    {
        if (!family.Leave())
            throw std::runtime_error("a process did not end as it should");
    }

    static std::string Code(unsigned code)
    {
        char text[16];
        std::snprintf(text, sizeof text, "0x%08X", code);
        return text;
    }
};

// ---- The show

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

/// The file's records, in the middle abridged.
void Show(const std::filesystem::path& path, const tools::LogFile& file, bool all)
{
    constexpr std::size_t head = 14;
    constexpr std::size_t tail = 10;
    const bool colour = tools::PrepareTerminal() && ColourIsWanted();
    const std::vector<tools::Record>& records = file.Records();
    std::printf("%s\n", tools::ToUtf8(path.filename()).c_str());
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
bool Check(const std::filesystem::path& path, const tools::LogFile& file, tools::Ledger ledger)
{
    std::size_t torn = file.Torn().size();
    for (const tools::Record& record : file.Records()) {
        if (record.Text.find(" | ") != std::string_view::npos)
            ++torn;  // a second record begins inside the first: no text of this program holds a separator
        else if (const auto mark = tools::ReadMark(record.Text))
            ledger.Enter(*mark);
    }
    const tools::Findings found = ledger.Close();
    std::printf("%-18s %7u %7zu %5u %5zu %11u\n", tools::ToUtf8(path.filename()).c_str(), found.Written,
                file.Records().size(), found.Lost, torn, found.Duplicated + found.Misplaced + found.Unexpected);
    if (found.Unreported != 0)
        std::printf("    and %u whole records that the killed process had no time to report\n", found.Unreported);
    return found.Sound() && torn == 0;
}

bool ShowAndCheck(const std::filesystem::path& log, const tools::Board& board, bool all)
{
    std::filesystem::path previous = log;
    previous.replace_filename(std::filesystem::path("Previous ") += log.filename());
    const tools::LogFile first(previous);
    const tools::LogFile second(log);
    Show(previous, first, all);
    Show(log, second, all);

    std::vector<bool> killed(AllProcesses);
    killed[Victim] = true;
    std::printf("%-18s %7s %7s %5s %5s %11s\n", "", "written", "records", "lost", "torn", "out of turn");
    const bool firstSound = Check(previous, first, tools::Ledger(board, 0, SecondFamily, killed));
    const bool secondSound = Check(log, second, tools::Ledger(board, SecondFamily, AllProcesses, killed));
    std::printf("\nwritten: calls that gave 0, debug records not counted; records: whole ones of every kind\n");
    return firstSound && secondSound;
}

int Run(const Options& options)
{
    const std::string settings = ReadSettings(options.Settings);
    tools::ScratchFolder scratch;
    const tools::World world(scratch, settings);
    const std::filesystem::path log = PlaceLog(world);
    Story story(scratch);
    std::printf("%u processes of %u threads log to %s\n\n", Processes, Threads, tools::ToUtf8(log).c_str());
    story.FamilyWithAKill();
    story.FamilyAgain();
    const bool sound = ShowAndCheck(log, story.Board, options.All);
    if (options.Keep)
        scratch.Keep();
    return sound ? EXIT_SUCCESS : EXIT_FAILURE;
}

}  // namespace

int main(int count, char** arguments)
try {
    const std::vector<std::string> words = tools::Arguments(count, arguments);
    if (words.size() == 3 && words[0] == "--work") {
        tools::JoinWorld();
        return Work(tools::Board(tools::FromUtf8(words[1]), AllProcesses, Threads),
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
