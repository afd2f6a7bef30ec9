// Prints a log file to standard output.
#pragma once

#include <filesystem>

namespace testkit {

/// Prints the records, one line each.
void PrintLog(const std::filesystem::path& path);

}  // namespace testkit
