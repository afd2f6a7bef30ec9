// Reads a log file line by line. A log of millions of records does not have to fit into memory.
#pragma once

#include "tessmaru/text.h"

#include <cstdint>
#include <filesystem>
#include <functional>
#include <string>
#include <string_view>

namespace soak {

using Units = std::basic_string_view<unsigned short>;

/// A line without its line end.
struct Line {
    Units Text;
    std::uint64_t Start;  // the offset of its first byte
    bool HasEnd;          // a line end follows

    std::uint64_t end() const { return Start + Text.size() * sizeof(unsigned short); }
};

/// Calls `visit` for each line of a file. @throws std::runtime_error if the file cannot be read
void ForEachLine(const std::filesystem::path& path, const std::function<void(const Line&)>& visit);

std::string ToUtf8(Units text);

}  // namespace soak
