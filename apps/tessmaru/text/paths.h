// Paths in UTF-8, for the file operations of the standard library.
#pragma once

#include <filesystem>
#include <string>

namespace tool {

inline std::filesystem::path PathOf(const std::string& text)
{
    return std::filesystem::path(std::u8string(text.begin(), text.end()));
}

inline std::string Utf8Of(const std::filesystem::path& path)
{
    const std::u8string text = path.u8string();
    return {text.begin(), text.end()};
}

/// The folder of a file; "." if the path names none.
inline std::filesystem::path FolderOf(const std::string& path)
{
    const std::filesystem::path folder = PathOf(path).parent_path();
    return folder.empty() ? std::filesystem::path(".") : folder;
}

inline std::string NameOfFile(const std::string& path)
{
    return Utf8Of(PathOf(path).filename());
}

}  // namespace tool
