// Forms of a path.
#pragma once

#include <filesystem>
#include <string>

namespace testkit {

/// A path as UTF-8, and back. On Windows `path::string()` would be in the active code page.
std::string ToUtf8(const std::filesystem::path& path);
std::filesystem::path FromUtf8(const std::string& text);

/// The form of a path in which the platform allows more than 260 units.
std::string LongPath(const std::string& path);

}  // namespace testkit
