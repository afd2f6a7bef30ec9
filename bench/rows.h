// The groups of measurements, and how a row is printed.
#pragma once

#include "measure.h"

#include "tools/family.h"

#include <string>

namespace bench {

struct Plan {
    unsigned Rounds = 9;
    unsigned Records = 40000;  // of one run, over all its threads
    unsigned Calls = 1000000;  // of one round of a cheap call
    std::string Only;          // the one group to measure; empty: all
    std::filesystem::path Folder = std::filesystem::temp_directory_path();
};

/// A goal for the median of a row: at most, at least, or none (0).
struct Goal {
    double AtMost = 0;
    double AtLeast = 0;
};

void PrintHeading(const char* group);
void PrintRow(const std::string& what, const Comparison& comparison, const Goal& goal);

/// Makes a settings store at `path`: the log's path, a debug mask with bit 0 on and bit 1 off, a port, and as many
/// further values as asked for. Points the environment of this process to it.
void MakeStore(const std::filesystem::path& path, const std::filesystem::path& log, unsigned furtherValues);

/// A program that was built beside this one; empty if it was not built.
std::string Neighbour(const std::string& name);

void MeasureRecords(const Plan& plan, const tools::ScratchFolder& scratch);
void MeasureCalls(const Plan& plan, const tools::ScratchFolder& scratch);
void MeasureSettings(const Plan& plan, const tools::ScratchFolder& scratch);
void MeasureErrors(const Plan& plan, const tools::ScratchFolder& scratch);
void MeasureAutomation(const Plan& plan, const tools::ScratchFolder& scratch);
void MeasureFrames(const Plan& plan, const tools::ScratchFolder& scratch);
void MeasureVersion(const Plan& plan, const tools::ScratchFolder& scratch);
void MeasureMemory(const Plan& plan, const tools::ScratchFolder& scratch);

}  // namespace bench
