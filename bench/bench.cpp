// Prints what the library costs, each figure as a ratio to a floor or to another library, measured in the same
// run. A plain program: its rows compare pairs in turns and over several processes, which the usual
// harness for one function at a time does not do.
//
//     bench [--rounds n] [--records n] [--folder directory] [--only group]
#include "rows.h"

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <string_view>

#include <unistd.h>

namespace bench {

// The last column sets each way's best round against the other's best: what a machine with other work on it
// disturbs least.
void PrintHeading(const char* group)
{
    std::printf("\n%s\n%-44s %10s %10s   %s\n", group, "", "ns", "floor ns",
                "ratio, median (least .. most), of the least");
}

void PrintRow(const std::string& what, const Comparison& comparison, const Goal& goal)
{
    std::printf("%-44s %10.1f %10.1f   %6.2f (%.2f .. %.2f) %6.2f", what.c_str(), comparison.Subject.Median,
                comparison.Floor.Median, comparison.Ratio.Median, comparison.Ratio.Least, comparison.Ratio.Most,
                comparison.Subject.Least / comparison.Floor.Least);
    if (goal.AtMost > 0)
        std::printf("   goal <= %.2f: %s", goal.AtMost, comparison.Ratio.Median <= goal.AtMost ? "met" : "MISSED");
    if (goal.AtLeast > 0)
        std::printf("   goal >= %.2f: %s", goal.AtLeast, comparison.Ratio.Median >= goal.AtLeast ? "met" : "MISSED");
    std::printf("\n");
    std::fflush(stdout);
}

void MakeStore(const std::filesystem::path& path, const std::filesystem::path& log, unsigned furtherValues)
{
    const std::string root = "[HKEY_LOCAL_MACHINE\\SOFTWARE\\Orvane Electronics Limited\\Veltrix\\4.09.00-en\\";
    std::ofstream store(path, std::ios::trunc);
    store << "Windows Registry Editor Version 5.00\n\n"
          << root << "Log\\Application]\n\"FilePath\"=\"" << log.string() << "\"\n\"DebugMask\"=\"1\"\n\n"
          << root << "UDP]\n\"PortNumber\"=dword:00002328\n";
    for (unsigned i = 0; i < furtherValues; ++i) {
        if (i % 100 == 0)
            store << '\n' << root << "Sites\\" << i / 100 << "]\n";
        store << "\"Value" << i << "\"=\"text of value " << i << "\"\n";
    }
    setenv("VELTRIX_REGISTRY", path.c_str(), 1);
}

std::string Neighbour(const std::string& name)
{
    const std::filesystem::path program = std::filesystem::read_symlink("/proc/self/exe").replace_filename(name);
    return std::filesystem::exists(program) ? program.string() : std::string();
}

namespace {

Plan ReadPlan(int count, char** arguments)
{
    Plan plan;
    for (int i = 1; i < count; i += 2) {
        const std::string_view option = arguments[i];
        const char* const value = i + 1 < count ? arguments[i + 1] : nullptr;
        if (value != nullptr && option == "--folder")
            plan.Folder = value;
        else if (value != nullptr && option == "--only")
            plan.Only = value;
        else if (value != nullptr && (option == "--rounds" || option == "--records"))
            (option == "--rounds" ? plan.Rounds : plan.Records) = static_cast<unsigned>(std::stoul(value));
        else
            throw std::invalid_argument("usage: bench [--rounds n] [--records n] [--folder directory] [--only group]");
    }
    return plan;
}

/// Where named mutexes lie by default, so that they are measured there; else the folder of the files.
std::filesystem::path RuntimeParent(const Plan& plan)
{
    return access("/dev/shm", W_OK) == 0 ? std::filesystem::path("/dev/shm") : plan.Folder;
}

}  // namespace
}  // namespace bench

int main(int count, char** arguments)
try {
    const bench::Plan plan = bench::ReadPlan(count, arguments);
    const tools::ScratchFolder scratch(plan.Folder);
    const tools::ScratchFolder runtime(bench::RuntimeParent(plan));
    setenv("VELTRIX_RUNTIME", runtime.Path().c_str(), 1);
    std::printf("files in %s, named mutexes in %s, %ld processors, %u rounds, %u records a run\n",
                scratch.Path().c_str(), runtime.Path().c_str(), sysconf(_SC_NPROCESSORS_ONLN), plan.Rounds,
                plan.Records);
    const struct {
        std::string_view Name;
        void (*Measure)(const bench::Plan&, const tools::ScratchFolder&);
    } groups[] = {{"records", bench::MeasureRecords},       {"calls", bench::MeasureCalls},
                  {"settings", bench::MeasureSettings},     {"errors", bench::MeasureErrors},
                  {"automation", bench::MeasureAutomation}, {"frames", bench::MeasureFrames},
                  {"version", bench::MeasureVersion},       {"memory", bench::MeasureMemory}};
    for (const auto& group : groups) {
        if (plan.Only.empty() || plan.Only == group.Name)
            group.Measure(plan, scratch);
    }
    return EXIT_SUCCESS;
} catch (const std::exception& failure) {
    std::fprintf(stderr, "bench: %s\n", failure.what());
    return EXIT_FAILURE;
}
