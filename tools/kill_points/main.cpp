// The kill-point run of the shared log: a process is killed before and after each of its system calls, and each call is
// made to fail, alone and together with another one. After each run the log has to have every acknowledged record, and
// the next process has to work.
#include "run.h"
#include "system_calls.h"

#include "testkit/program.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <optional>
#include <random>
#include <stdexcept>

using namespace kill_points;

namespace {

constexpr Scenario Scenarios[] = {
    {"first", true, false, false, false},   // the first opener, with a rollover
    {"second", true, true, false, false},   // another process has the log open
    {"dead", true, false, true, false},     // the file of the mutex is left by a dead process
    {"both", true, true, true, false},      // another process has the log open, and a third one died as the owner
    {"empty", false, false, false, false},  // there is neither a log nor a mutex
    {"moved", true, false, false, true},    // the log is moved away while it is open
};

constexpr int Skipped = 77;

struct Options {
    std::string Only;                 // the name of a scenario; empty: all
    std::optional<std::size_t> Call;  // the only call that is disturbed, or the first one of a pair
    std::size_t Pairs = 500;          // of each scenario
    unsigned Seed = 1;
    bool Quick = false;
    bool Controls = false;
};

/// One line of the table.
struct Row {
    unsigned Kills[3] = {};  // before, after and inside a call
    unsigned Failures = 0;
    unsigned Pairs = 0;
    unsigned Unreported = 0;
    unsigned Torn = 0;
    unsigned Left = 0;
    unsigned Findings = 0;
    double Slowest = 0;
};

std::string Describe(const Disturbance& disturbance, const Course& course)
{
    static const char* const acts[] = {"kill before", "kill after", "kill inside", "cut", "fail"};
    std::string text = acts[static_cast<int>(disturbance.What)];
    text += " call " + std::to_string(disturbance.Call);
    if (disturbance.Call < course.Calls.size())
        text += " (" + NameOf(course.Calls[disturbance.Call]) + ")";
    return disturbance.Error != 0 ? text + " with " + strerrorname_np(disturbance.Error) : text;
}

/// All ways to disturb one call other than to kill its process.
std::vector<Disturbance> FailuresAt(const Course& course, std::size_t call)
{
    std::vector<Disturbance> failures;
    for (const int error : FailuresOf(course.Calls[call]))
        failures.push_back({call, Act::fail, error});
    if (IsWrite(course.Calls[call]))
        failures.push_back({call, Act::cut});
    return failures;
}

/// The runs of one scenario.
class Sweep {
public:
    Sweep(const Scenario& scenario, const Options& options) : Kind(scenario), Config(options), Chance(options.Seed) {}

    Row Do()
    {
        const Course whole = Try({}).Traced;
        Calls = whole.Calls.size();
        for (std::size_t call = 0; call < Calls; ++call) {
            if (IsChosen(call))
                KillAt(whole, call);
        }
        if (!Config.Quick) {
            TrySingles(whole);
            TryPairs();
        }
        return Total;
    }

    std::size_t calls() const { return Calls; }

private:
    bool IsChosen(std::size_t call) const { return !Config.Call || Config.Call == call; }

    RunResult Try(const std::vector<Disturbance>& plan)
    {
        RunResult result = RunOnce(Kind, plan);
        Total.Unreported += result.Unreported;
        Total.Torn += result.Torn;
        Total.Left += result.Left;
        Total.Slowest = std::max(Total.Slowest, result.SuccessorSeconds);
        if (result.Findings.empty())
            return result;
        ++Total.Findings;
        std::printf("%s:", Kind.Name);
        for (const Disturbance& disturbance : plan)
            std::printf(" %s;", Describe(disturbance, result.Traced).c_str());
        for (const std::string& finding : result.Findings)
            std::printf(" -> %s", finding.c_str());
        std::printf("\n");
        std::fflush(stdout);
        return result;
    }

    void KillAt(const Course& whole, std::size_t call)
    {
        for (const Act act : {Act::killBefore, Act::killAfter, Act::killInside}) {
            // The call that ends the process does not return.
            const bool isEnd = call + 1 == Calls && act == Act::killAfter;
            if (isEnd || (act == Act::killInside && !IsWrite(whole.Calls[call])))
                continue;
            Try({{call, act}});
            ++Total.Kills[static_cast<int>(act)];
        }
    }

    /// Also collects the pairs: what follows a failure is known only after its run.
    void TrySingles(const Course& whole)
    {
        for (std::size_t call = 0; call < Calls; ++call) {
            if (!IsChosen(call))
                continue;
            for (const Disturbance& first : FailuresAt(whole, call)) {
                const Course course = Try({first}).Traced;
                ++Total.Failures;
                for (std::size_t later = call + 1; later < course.Calls.size(); ++later) {
                    for (const Disturbance& second : FailuresAt(course, later))
                        Pairs.push_back({first, second});
                }
            }
        }
    }

    void TryPairs()
    {
        std::printf("%s: %zu of %zu pairs, seed %u\n", Kind.Name, std::min(Config.Pairs, Pairs.size()), Pairs.size(),
                    Config.Seed);
        std::fflush(stdout);
        std::shuffle(Pairs.begin(), Pairs.end(), Chance);
        for (; Total.Pairs < std::min(Config.Pairs, Pairs.size()); ++Total.Pairs)
            Try(Pairs[Total.Pairs]);
    }

    const Scenario& Kind;
    const Options& Config;
    std::mt19937 Chance;
    std::size_t Calls = 0;
    std::vector<std::vector<Disturbance>> Pairs;
    Row Total;
};

/// @return whether there are no findings
bool RunSweeps(const Options& options)
{
    std::string table;
    unsigned findings = 0;
    for (const Scenario& scenario : Scenarios) {
        if (!options.Only.empty() && options.Only != scenario.Name)
            continue;
        Sweep sweep(scenario, options);
        const Row row = sweep.Do();
        findings += row.Findings;
        char line[160];
        std::snprintf(line, sizeof line, "%-8s %6zu %6u %6u %6u %8u %6u %10u %5u %5u %7.3f s %8u\n", scenario.Name,
                      sweep.calls(), row.Kills[0], row.Kills[1], row.Kills[2], row.Failures, row.Pairs, row.Unreported,
                      row.Torn, row.Left, row.Slowest, row.Findings);
        table += line;
    }
    std::printf("                  ------ kills ------\n");
    std::printf("scenario  calls before  after inside failures  pairs unreported  torn  left successor findings\n%s",
                table.c_str());
    return findings == 0;
}

/// Whether the checks report a fault that is planted into the disturbed process.
bool IsFound(const char* fault, const char* finding)
{
    const Scenario& scenario = Scenarios[0];
    const auto hasFinding = [&](const RunResult& result) {
        return std::find(result.Findings.begin(), result.Findings.end(), finding) != result.Findings.end();
    };
    const RunResult whole = RunOnce(scenario, {}, fault);
    bool found = hasFinding(whole);
    for (std::size_t call = 0; call < whole.Traced.Calls.size() && !found; ++call) {
        found = hasFinding(RunOnce(scenario, {{call, Act::killBefore}}, fault));
        for (const Disturbance& failure : FailuresAt(whole.Traced, call))
            found = found || hasFinding(RunOnce(scenario, {failure}, fault));
    }
    std::printf("%-10s %-60s %s\n", fault, finding, found ? "found" : "NOT FOUND");
    return found;
}

bool RunControls()
{
    const std::pair<const char*, const char*> faults[] = {
        {"early", "an acknowledged record is lost"},
        {"twice", "a record is duplicated"},
        {"leftover", "a file is left in the runtime folder"},
        {"leak", "a descriptor is left open"},
        {"old", "the old content is not in exactly one file"},
        {"silent", "the log did not open, and there was no code"},
        {"crash", "the process ended by a signal"},
        {"hang", "the process did not end in time"},
    };
    bool found = true;
    for (const auto& [fault, finding] : faults)
        found = IsFound(fault, finding) && found;
    return found;
}

Options ReadOptions(const std::vector<std::string>& words)
{
    Options options;
    for (std::size_t i = 0; i < words.size(); ++i) {
        const bool hasValue = i + 1 < words.size();
        if (words[i] == "--quick")
            options.Quick = true;
        else if (words[i] == "--controls")
            options.Controls = true;
        else if (words[i] == "--scenario" && hasValue)
            options.Only = words[++i];
        else if (words[i] == "--call" && hasValue)
            options.Call = std::stoul(words[++i]);
        else if (words[i] == "--pairs" && hasValue)
            options.Pairs = words[++i] == "all" ? SIZE_MAX : std::stoul(words[i]);
        else if (words[i] == "--seed" && hasValue)
            options.Seed = static_cast<unsigned>(std::stoul(words[++i]));
        else
            throw std::invalid_argument(
                "usage: kill_points [--scenario name] [--call n] [--quick] [--pairs n|all] [--seed n] [--controls]");
    }
    const auto isNamed = [&options](const Scenario& scenario) { return options.Only == scenario.Name; };
    if (!options.Only.empty() && std::none_of(std::begin(Scenarios), std::end(Scenarios), isNamed))
        throw std::invalid_argument("there is no scenario " + options.Only);
    return options;
}

}  // namespace

int main(int count, char** arguments)
try {
    const std::vector<std::string> words = testkit::Arguments(count, arguments);
    if (words.size() >= 3 && words[0] == "--write")
        RunWriter(words);
    const Options options = ReadOptions(words);
    if (RunOnce(Scenarios[0], {}).Traced.Status == NotTraced) {
        std::printf("SKIPPED: this process may not trace others\n");
        return Skipped;
    }
    return (options.Controls ? RunControls() : RunSweeps(options)) ? EXIT_SUCCESS : EXIT_FAILURE;
} catch (const std::exception& failure) {
    std::fprintf(stderr, "kill_points: %s\n", failure.what());
    return EXIT_FAILURE;
}
