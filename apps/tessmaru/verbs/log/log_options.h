// The options of `tessmaru log` that choose a log and its records.
#pragma once

#include "cli/session.h"

#include <CLI/CLI.hpp>

#include <string>
#include <vector>

namespace tool {

struct LogOptions {
    std::string File;  // empty: the log of the settings; "-": standard input
    bool Previous = false;
    std::vector<std::string> Levels;
    std::string Since;
    std::string Until;
    std::vector<std::string> Processes;
    std::vector<std::string> Threads;
    std::vector<std::string> Sources;
    std::vector<std::string> Texts;
    std::string Expression;
    std::string DatePattern;
    std::size_t Count = 0;  // 0: all records
};

/// Adds the options that choose the log.
void AddFileOptions(CLI::App* verb, LogOptions& options);

/// Adds the options that choose records.
void AddFilterOptions(CLI::App* verb, LogOptions& options);

/// The log that the options or else the settings name, as a path on disk; "-" is standard input.
std::string LogFileOf(const LogOptions& options);

/// The old file beside a log, to which the log is moved at a rollover.
std::string PreviousFileOf(const std::string& file);

}  // namespace tool
