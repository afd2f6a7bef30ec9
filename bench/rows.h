// The groups of measurements, and the printing of their rows.
#pragma once

#include "measure.h"

#include "testkit/scratch_folder.h"

#include <filesystem>
#include <string>

namespace bench {

struct Plan {
    unsigned Rounds = 9;
    unsigned Records = 40000;  // of one run, in all its threads
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

/// Makes a settings store at `path` and names it in the environment: the log's path, a debug mask with bit 0 on and bit
/// 1 off, a port, and `furtherValues` values.
void MakeStore(const std::filesystem::path& path, const std::filesystem::path& log, unsigned furtherValues);

/// A program in the folder of this one; empty if it was not built.
std::string Neighbour(const std::string& name);

void MeasureRecords(const Plan& plan, const testkit::ScratchFolder& scratch);
void MeasureCalls(const Plan& plan, const testkit::ScratchFolder& scratch);
void MeasureSettings(const Plan& plan, const testkit::ScratchFolder& scratch);
void MeasureErrors(const Plan& plan, const testkit::ScratchFolder& scratch);
void MeasureAutomation(const Plan& plan, const testkit::ScratchFolder& scratch);
void MeasureFrames(const Plan& plan, const testkit::ScratchFolder& scratch);
void MeasureVersion(const Plan& plan, const testkit::ScratchFolder& scratch);
void MeasureMemory(const Plan& plan, const testkit::ScratchFolder& scratch);

}  // namespace bench
