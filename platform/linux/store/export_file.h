// Reads the file of the settings store, which has the export format of the Windows registry editor.
#pragma once

#include "store/snapshot.h"

#include <string_view>
#include <vector>

namespace layer {

/// The malformed lines of a file, which were dropped. Only the first ones are listed.
struct DroppedLines {
    struct Line {
        std::size_t Number;  // from 1; for a statement of several lines, its first line
        const char* Reason;
    };
    static constexpr std::size_t Limit = 20;

    std::vector<Line> First;
    std::size_t Count = 0;  // of all dropped lines, listed or not
};

/// Parses an export. No input fails: malformed lines are dropped.
/// @param file UTF-16 (low byte first) with a byte-order mark, or UTF-8 with or without one; less than 1 GB
/// @param dropped receives the malformed lines
/// @throws std::bad_alloc
RegistrySnapshot ReadRegistryFile(std::string_view file, DroppedLines& dropped);

}  // namespace layer
