// The soak: many processes write one log while some of them are killed, restarted and stopped. Then every record is
// accounted for: each record that was reported as written is in the file once, whole and in its thread's order.
//
// The text of a record follows from its mark and the seed, so a single wrong unit shows. A call that returns a failure
// must have written nothing: the thread tries the same number again, so a record that is in the file in spite of the
// failure shows as a duplicate.
#include "tessmaru/log.h"
#include "tessmaru/text.h"

#include "testkit/file_content.h"
#include "testkit/ledger.h"
#include "testkit/log_reader.h"
#include "testkit/paths.h"
#include "testkit/process_family.h"
#include "testkit/scratch_folder.h"
#include "testkit/settings_store.h"
#include "testkit/settings_text.h"
#include "testkit/writer_reports.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <map>
#include <random>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

using namespace utility::literals;
using utilities::CLog;

namespace {

using Clock = std::chrono::steady_clock;

constexpr std::uint32_t TimedOut = 0x80040302;
constexpr std::string_view OldContent = "left by an earlier family";

struct Options {
    unsigned Processes = 8;
    unsigned Threads = 4;
    unsigned Records = 10000;  // of each thread, over all incarnations of its process
    unsigned Kills = 40;
    unsigned Stops = 0;
    unsigned Seed = std::random_device()();
    unsigned Seconds = 300;

    unsigned Incarnations() const { return Processes + Kills; }

    /// The number of the process that writes nothing and keeps the log open.
    unsigned Holder() const { return Incarnations(); }
    unsigned AllProcesses() const { return Incarnations() + 1; }
};

/// The text of a record: its mark, and letters that follow from the mark and the seed. Most texts are short, some fill
/// the log's buffer of 1022 units.
std::string TextOf(const testkit::Mark& mark, unsigned seed)
{
    std::string text = "p" + std::to_string(mark.Process) + " t" + std::to_string(mark.Thread) + " n" +
                       std::to_string(mark.Number) + " ";
    std::uint32_t state = seed + mark.Process * 2654435761U + mark.Thread * 40503U + mark.Number * 69069U;
    const auto next = [&state] { return (state = state * 1664525U + 1013904223U) >> 16; };
    const std::uint32_t filler = next() % 16 == 0 ? next() % 900 : next() % 120;
    for (std::uint32_t i = 0; i < filler; ++i)
        text += static_cast<char>('A' + next() % 26);
    return text;
}

// ---- A writing process

LONG WriteRecord(CLog& log, const testkit::Mark& mark, const char* text)
{
    switch (mark.Number % 4) {
        case 0: return log.LogError(u"%S"_w, u"Soak"_w, text);
        case 1: return log.LogWarn(u"%S"_w, u"Soak"_w, text);
        case 2: return log.LogInfo(u"%S"_w, u"Soak"_w, text);
        default: return log.LogStatus(u"%S"_w, u"Soak"_w, text);
    }
}

void WriteUpToGoal(CLog& log, testkit::Mark mark, unsigned seed, testkit::WriterReport& report)
{
    for (mark.Number = 1; mark.Number <= report.Goal;) {
        const auto code = static_cast<std::uint32_t>(WriteRecord(log, mark, TextOf(mark, seed).c_str()));
        if (code == 0) {
            report.Written = mark.Number++;
        } else if (code == TimedOut) {
            ++report.Timeouts;
        } else {
            report.LastFailure = code;
            ++report.Failures;
            return;
        }
    }
}

int Write(const testkit::WriterReports& reports, unsigned process, unsigned seed)
{
    CLog* log = CLog::GetInstance();
    if (log == nullptr) {
        std::fprintf(stderr, "soak: process %u cannot open the log: 0x%08X\n", process,
                     static_cast<unsigned>(CLog::GetInitError()));
        return EXIT_FAILURE;
    }
    reports.At(process, 0).Opened = 1;
    std::vector<std::thread> threads;
    for (unsigned thread = 0; thread < reports.threads(); ++thread) {
        threads.emplace_back([&, thread] {
            WriteUpToGoal(*log, testkit::Mark{process, thread, 1}, seed, reports.At(process, thread));
        });
    }
    for (std::thread& thread : threads)
        thread.join();
    testkit::WaitToEnd();
    return EXIT_SUCCESS;
}

// ---- The process that disturbs the writers and checks their log

class Soak {
public:
    Soak(const Options& options, const testkit::ScratchFolder& scratch)
        : Config(options), ReportsPath(scratch / "reports"), Log(scratch / "App.log"),
          Old(scratch / "Previous App.log"), Reports(ReportsPath, options.AllProcesses(), options.Threads),
          Killed(options.Incarnations()), Chance(options.Seed),
          Limit(Clock::now() + std::chrono::seconds(options.Seconds))
    {
    }

    void Run()
    {
        const auto begin = Clock::now();
        testkit::WriteFile(Log, OldContent);
        for (unsigned slot = 0; slot < Config.Processes; ++slot)
            Start(slot, std::vector<unsigned>(Config.Threads, Config.Records));

        // All processes opened the log at once, and one of them moved the old file aside. From here on a process that
        // is never killed keeps the log open: the file must not be moved again while the others are killed.
        WaitUntil([this] { return AllOpen(); });
        StartProcess(Config.Holder());
        WaitUntil([this] { return Reports.At(Config.Holder(), 0).Opened != 0; });
        for (const Disturbance& disturbance : Plan())
            Disturb(disturbance);
        // A process that opens the log after all others have closed it would move the file again.
        WaitUntil([this] { return Written() >= Total() && AllOpen(); });
        Elapsed = Clock::now() - begin;
        if (!Members.End())
            throw std::runtime_error("a process ended with a failure");
    }

    bool Check() const
    {
        const testkit::LogFile file(Log);
        testkit::Ledger ledger(Reports, 0, Incarnation, Killed);
        std::vector<std::string_view> torn = file.Torn();
        unsigned closings = 0;
        for (const testkit::Record& record : file.Records()) {
            if (record.Source.ends_with(" Log")) {
                closings += record.Text == "Log closing";
                continue;
            }
            const auto mark = testkit::ReadMark(record.Text);
            if (mark && record.Text == TextOf(*mark, Config.Seed))
                ledger.Enter(*mark);
            else
                torn.push_back(record.Line);
        }
        const testkit::Findings found = ledger.Close();
        const bool rolled = RolledOver();
        Print(found, torn, closings, rolled);
        return found.IsClean() && torn.empty() && closings == Survivors() && rolled && found.Written == Total();
    }

private:
    struct Disturbance {
        std::uint64_t At;  // number of records that are in the file by then
        bool Kill;
    };

    void Start(unsigned slot, const std::vector<unsigned>& goals)
    {
        for (unsigned thread = 0; thread < Config.Threads; ++thread)
            Reports.At(Incarnation, thread).Goal = goals[thread];
        Slots.resize(Config.Processes);
        Slots[slot] = {StartProcess(Incarnation), Incarnation};
        ++Incarnation;
    }

    testkit::Process* StartProcess(unsigned process)
    {
        return &Members.Start({"--write", testkit::ToUtf8(ReportsPath), std::to_string(Config.AllProcesses()),
                               std::to_string(Config.Threads), std::to_string(process), std::to_string(Config.Seed)});
    }

    /// Kills and stops, spread over the whole run.
    std::vector<Disturbance> Plan()
    {
        std::uniform_int_distribution<std::uint64_t> moment(Written(), std::max(Written(), Total() - 1));
        std::vector<Disturbance> plan;
        for (unsigned i = 0; i < Config.Kills + Config.Stops; ++i)
            plan.push_back({moment(Chance), i < Config.Kills});
        std::sort(plan.begin(), plan.end(), [](const auto& one, const auto& other) { return one.At < other.At; });
        return plan;
    }

    void Disturb(const Disturbance& disturbance)
    {
        WaitUntil([&] { return Written() >= disturbance.At; });
        const unsigned slot = std::uniform_int_distribution<unsigned>(0, Config.Processes - 1)(Chance);
        testkit::Process& process = *Slots[slot].Process;
        if (!disturbance.Kill) {
            process.Stop();
            std::this_thread::sleep_for(std::chrono::milliseconds(1500));
            process.Continue();
            return;
        }
        process.Kill();
        const unsigned dead = Slots[slot].Incarnation;
        Killed[dead] = true;
        std::vector<unsigned> goals;
        for (unsigned thread = 0; thread < Config.Threads; ++thread)
            goals.push_back(Reports.At(dead, thread).Goal - Reports.At(dead, thread).Written);
        Start(slot, goals);
    }

    /// The number of processes that close the log: the last writers and the holder.
    unsigned Survivors() const { return Config.Processes + 1; }

    std::uint64_t Total() const { return std::uint64_t{Config.Processes} * Config.Threads * Config.Records; }

    std::uint64_t Sum(std::atomic<std::uint32_t> testkit::WriterReport::*count) const
    {
        std::uint64_t sum = 0;
        for (unsigned process = 0; process < Incarnation; ++process) {
            for (unsigned thread = 0; thread < Config.Threads; ++thread)
                sum += Reports.At(process, thread).*count;
        }
        return sum;
    }

    std::uint64_t Written() const { return Sum(&testkit::WriterReport::Written); }

    bool AllOpen() const
    {
        return std::all_of(Slots.begin(), Slots.end(),
                           [this](const Slot& slot) { return Reports.At(slot.Incarnation, 0).Opened != 0; });
    }

    template <class Condition>
    void WaitUntil(Condition condition) const
    {
        while (!condition()) {
            if (!Members.AllRun())
                throw std::runtime_error("a process ended unexpectedly");
            if (Sum(&testkit::WriterReport::Failures) != 0)
                throw std::runtime_error("a call failed with " + LastFailure());
            if (Clock::now() > Limit)
                throw std::runtime_error("not done in time: " + std::to_string(Written()) + " records written");
            std::this_thread::sleep_for(std::chrono::microseconds(500));
        }
    }

    std::string LastFailure() const
    {
        std::uint32_t code = 0;
        for (unsigned process = 0; process < Incarnation; ++process) {
            for (unsigned thread = 0; thread < Config.Threads; ++thread)
                code = std::max<std::uint32_t>(code, Reports.At(process, thread).LastFailure);
        }
        char text[16];
        std::snprintf(text, sizeof text, "0x%08X", code);
        return text;
    }

    /// Whether the old content, and nothing else, was moved aside.
    bool RolledOver() const { return std::filesystem::exists(Old) && testkit::ReadFile(Old) == OldContent; }

    void Print(const testkit::Findings& found, const std::vector<std::string_view>& torn, unsigned closings,
               bool rolled) const
    {
        const double seconds = std::chrono::duration<double>(Elapsed).count();
        for (const std::string_view line : torn)
            std::printf("torn: %.*s\n", static_cast<int>(line.size()), line.data());
        std::printf("written %u of %llu, lost %u, torn %zu, duplicated %u, misplaced %u, unexpected %u\n",
                    found.Written, static_cast<unsigned long long>(Total()), found.Lost, torn.size(), found.Duplicated,
                    found.Misplaced, found.Unexpected);
        std::printf("whole but not reported by killed processes: %u\n", found.Unreported);
        std::printf("calls that timed out (0x80040302) and were tried again: %llu\n",
                    static_cast<unsigned long long>(Sum(&testkit::WriterReport::Timeouts)));
        std::printf("closing records: %u of %u; old file moved aside: %s\n", closings, Survivors(),
                    rolled ? "yes" : "NO");
        std::printf("%.2f s, %.0f records/s\n", seconds, static_cast<double>(found.Written) / seconds);
    }

    struct Slot {
        testkit::Process* Process = nullptr;
        unsigned Incarnation = 0;
    };

    const Options Config;
    const std::filesystem::path ReportsPath;
    const std::filesystem::path Log;
    const std::filesystem::path Old;
    const testkit::WriterReports Reports;
    std::vector<bool> Killed;
    std::mt19937 Chance;
    Clock::time_point Limit;
    Clock::duration Elapsed{};
    testkit::ProcessFamily Members;
    std::vector<Slot> Slots;
    unsigned Incarnation = 0;  // of the next process
};

unsigned Number(const std::string& word)
{
    return static_cast<unsigned>(std::stoul(word));
}

Options ReadOptions(const std::vector<std::string>& words)
{
    Options options;
    const std::map<std::string, unsigned*> places = {
        {"--processes", &options.Processes}, {"--threads", &options.Threads}, {"--records", &options.Records},
        {"--kills", &options.Kills},         {"--stops", &options.Stops},     {"--seed", &options.Seed},
        {"--seconds", &options.Seconds}};
    for (std::size_t i = 0; i < words.size(); i += 2) {
        const auto place = places.find(words[i]);
        if (place == places.end() || i + 1 == words.size())
            throw std::invalid_argument(
                "usage: soak [--processes n] [--threads n] [--records n] [--kills n] "
                "[--stops n] [--seed n] [--seconds n]");
        *place->second = Number(words[i + 1]);
    }
    if (options.Processes == 0 || options.Threads == 0 || options.Records == 0)
        throw std::invalid_argument("there is nothing to write");
    return options;
}

}  // namespace

int main(int count, char** arguments)
try {
    const std::vector<std::string> words = testkit::Arguments(count, arguments);
    if (words.size() == 6 && words[0] == "--write") {
        testkit::JoinSettingsStore();
        return Write(testkit::WriterReports(testkit::FromUtf8(words[1]), Number(words[2]), Number(words[3])),
                     Number(words[4]), Number(words[5]));
    }

    const Options options = ReadOptions(words);
    std::printf("%u processes of %u threads, %u records each, %u kills, %u stops, seed %u\n", options.Processes,
                options.Threads, options.Records, options.Kills, options.Stops, options.Seed);
    std::fflush(stdout);
    testkit::ScratchFolder scratch;
    const testkit::SettingsStore settings(scratch);
    settings.Set(testkit::LogSection(testkit::ToUtf8(scratch / "App.log")));
    Soak soak(options, scratch);
    soak.Run();
    if (soak.Check())
        return EXIT_SUCCESS;
    scratch.Keep();
    std::printf("the files are kept in %s\n", testkit::ToUtf8(scratch.path()).c_str());
    return EXIT_FAILURE;
} catch (const std::exception& failure) {
    std::fprintf(stderr, "soak: %s\n", failure.what());
    return EXIT_FAILURE;
}
