// Whole files, read and written in one call.
//
//     WriteFile(folder / "old.log", "content");   EXPECT_EQ(ReadFile(folder / "old.log"), "content");
#pragma once

#include <filesystem>
#include <string>
#include <string_view>

namespace testkit {

/// @throws std::runtime_error if the file cannot be read.
std::string ReadFile(const std::filesystem::path& path);

/// Makes the file or replaces its content.
void WriteFile(const std::filesystem::path& path, std::string_view content);

}  // namespace testkit
