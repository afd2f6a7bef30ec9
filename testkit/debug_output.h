// Debug output of this process.
#pragma once

#include <filesystem>

namespace testkit {

/// Appends the debug output of this process to a file, to the end of the process.
void SendDebugOutputTo(const std::filesystem::path& path);

}  // namespace testkit
