// The soak, the endurance test of the shared log: many processes write one log while they are killed and disturbed.
// Then every record is accounted for: each record that was reported as written is in the file once, whole and in its
// thread's order. Each mode disturbs in another way; each has controls, deliberate faults that the check has to find.
#include "soak/run.h"
#include "soak/writer.h"

#include "testkit/paths.h"
#include "testkit/program.h"

#include <cstdio>
#include <cstdlib>
#include <exception>
#include <stdexcept>

namespace soak {
namespace {

void PrintHelp()
{
    std::puts("usage: soak [MODE | all | controls] [--quick] [option ...]\n\nModes (default: plain):");
    for (const NamedMode& mode : AllModes()) {
        std::string controls;
        for (const Control& control : mode.Make()->controls())
            controls += std::string(" ") + control.Fault;
        std::printf("  %-16s %s\n  %16s controls:%s\n", mode.Name.c_str(), mode.About.c_str(), "", controls.c_str());
    }
    std::puts(
        "  all              all of them, one after another\n"
        "  controls         each control of each mode: a deliberate fault, which the check has to find\n\n"
        "Options, each with a number: --processes --threads --records (of each thread in one generation) --kills\n"
        "--stops --generations --pause (microseconds after each record) --seed --seconds.\n"
        "--control FAULT makes a deliberate fault; the run then fails. --quick writes a few thousand records.");
}

Options OptionsOf(const NamedMode& mode, const Command& command)
{
    Options options;
    mode.Make()->SetDefaults(options);
    return command.Apply(options);
}

void PrintVerdict(const Verdict& found, double seconds)
{
    std::printf("written %llu", static_cast<unsigned long long>(found.Written));
    for (const auto& [word, count] : found.Faults)
        std::printf(", %s %llu", word.c_str(), static_cast<unsigned long long>(count));
    std::puts("");
    for (const auto& [what, count] : found.Counts) {
        if (count != 0)
            std::printf("  %s: %llu\n", what.c_str(), static_cast<unsigned long long>(count));
    }
    for (const std::string& sample : found.Samples)
        std::printf("  %s\n", sample.c_str());
    std::printf("  %.1f s, %.0f records/s\n", seconds, static_cast<double>(found.Written) / seconds);
    std::fflush(stdout);
}

bool RunMode(const NamedMode& mode, const Options& options)
{
    std::printf("%s: %u processes of %u threads, %u records each, %u generations, %u kills, %u stops, seed %u\n",
                mode.Name.c_str(), options.Processes, options.Threads, options.Records, options.Generations,
                options.Kills, options.Stops, options.Seed);
    std::fflush(stdout);
    const auto begin = std::chrono::steady_clock::now();
    Run run(mode, options);
    const Verdict& found = run.Execute();
    PrintVerdict(found, std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count());
    if (found.IsClean())
        return true;
    run.KeepFiles();
    std::printf("  FAILED; the files are kept in %s\n", testkit::ToUtf8(run.Folder.path()).c_str());
    return false;
}

bool RunAll(const Command& command)
{
    bool passed = true;
    for (const NamedMode& mode : AllModes())
        passed = RunMode(mode, OptionsOf(mode, command)) && passed;
    return passed;
}

/// @return whether the run with the deliberate fault reported it
bool RunControl(const NamedMode& mode, const Control& control, Options options)
{
    options.Control = control.Fault;
    Run run(mode, options);
    const Verdict& found = run.Execute();
    const auto count = found.Faults.find(control.Word);
    const bool passed = count != found.Faults.end() && count->second != 0;
    std::printf("%s: the fault \"%s\" was %s as \"%s\"\n", mode.Name.c_str(), control.Fault,
                passed ? "reported" : "NOT REPORTED", control.Word);
    if (!passed)
        PrintVerdict(found, 1);
    std::fflush(stdout);
    return passed;
}

bool RunControls(Command command)
{
    command.Quick = true;
    bool passed = true;
    for (const NamedMode& mode : AllModes()) {
        for (const Control& control : mode.Make()->controls())
            passed = RunControl(mode, control, OptionsOf(mode, command)) && passed;
    }
    return passed;
}

bool Main(const std::vector<std::string>& words)
{
    if (!words.empty() && (words[0] == "help" || words[0] == "--help")) {
        PrintHelp();
        return true;
    }
    const Command command = ReadCommand(words);
    if (command.Mode == "all")
        return RunAll(command);
    if (command.Mode == "controls")
        return RunControls(command);
    const NamedMode mode = FindMode(command.Mode);
    return RunMode(mode, OptionsOf(mode, command));
}

}  // namespace
}  // namespace soak

int main(int count, char** arguments)
try {
    const std::vector<std::string> words = testkit::Arguments(count, arguments);
    if (const auto order = soak::WriterOrder::Read(words))
        return soak::Write(*order);
    if (soak::RunPlatformProcess(words))
        return EXIT_SUCCESS;
    return soak::Main(words) ? EXIT_SUCCESS : EXIT_FAILURE;
} catch (const std::exception& failure) {
    std::fprintf(stderr, "soak: %s\n", failure.what());
    return EXIT_FAILURE;
}
