// The benchmark: prints the cost of the library, each figure as a ratio to a floor or to another library, measured in
// the same run. It is a plain program because its rows compare pairs in turns and across processes, which the usual
// harness for single functions does not do.
//
//     bench [--rounds n] [--records n] [--folder directory] [--only group]
#include "rows.h"

#include "testkit/file_content.h"
#include "testkit/program.h"
#include "testkit/settings_text.h"

#include <cstdio>
#include <cstdlib>
#include <string_view>

#include <unistd.h>

namespace bench {

// The last column compares the best rounds of both sides, which other work on the machine disturbs least.
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
    std::string store(testkit::ExportHeading);
    store += testkit::LogSection(log.string(), "1");
    store += testkit::Section(testkit::SuiteKey + "UDP", "\"PortNumber\"=dword:00002328\r\n");
    for (unsigned i = 0; i < furtherValues; ++i) {
        if (i % 100 == 0)
            store += testkit::Section(testkit::SuiteKey + "Sites\\" + std::to_string(i / 100), "");
        store += testkit::TextValue("Value" + std::to_string(i), "text of value " + std::to_string(i));
    }
    testkit::WriteFile(path, store);
    setenv("VELTRIX_REGISTRY", path.c_str(), 1);
}

std::string Neighbour(const std::string& name)
{
    const std::filesystem::path program = testkit::ThisProgram().replace_filename(name);
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

/// The default folder of named mutexes, to measure them there; otherwise the folder of the files.
std::filesystem::path RuntimeParent(const Plan& plan)
{
    return access("/dev/shm", W_OK) == 0 ? std::filesystem::path("/dev/shm") : plan.Folder;
}

}  // namespace
}  // namespace bench

int main(int count, char** arguments)
try {
    const bench::Plan plan = bench::ReadPlan(count, arguments);
    const testkit::ScratchFolder scratch(plan.Folder);
    const testkit::ScratchFolder runtime(bench::RuntimeParent(plan));
    setenv("VELTRIX_RUNTIME", runtime.path().c_str(), 1);
    std::printf("files in %s, named mutexes in %s, %ld processors, %u rounds, %u records a run\n",
                scratch.path().c_str(), runtime.path().c_str(), sysconf(_SC_NPROCESSORS_ONLN), plan.Rounds,
                plan.Records);
    const struct {
        std::string_view Name;
        void (*Measure)(const bench::Plan&, const testkit::ScratchFolder&);
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
