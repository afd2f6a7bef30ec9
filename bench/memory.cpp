// Measures the peak memory of a program that logs, and of an empty one.
#include "rows.h"

#include <cstdio>

namespace bench {
namespace {

/// The peak memory that the program prints, in kB: the median of several runs.
double PeakOf(const std::string& program)
{
    std::vector<double> peaks;
    for (int run = 0; run < 9; ++run) {
        FILE* output = popen(program.c_str(), "r");
        long peak = 0;
        if (output == nullptr || std::fscanf(output, "%ld", &peak) != 1 || pclose(output) != 0)
            throw std::runtime_error(program + " failed");
        peaks.push_back(static_cast<double>(peak));
    }
    return SpreadOf(peaks).Median;
}

}  // namespace

void MeasureMemory(const Plan&, const testkit::ScratchFolder& scratch)
{
    MakeStore(scratch / "registry.reg", scratch / "App.log", 0);
    const double empty = PeakOf(Neighbour("memory_empty"));
    const double runtime = PeakOf(Neighbour("memory_runtime"));
    const double logging = PeakOf(Neighbour("memory_logging"));
    std::printf(
        "\nPeak memory in kB\na program that logs %.0f; %.0f above an empty one (%.0f), %.0f above an empty one that "
        "has the language's library loaded (%.0f)\n",
        logging, logging - empty, empty, logging - runtime, runtime);
}

}  // namespace bench
