// Reads the file of the settings store, which has the export format of the Windows registry editor.
#pragma once

#include "store/snapshot.h"

#include <string_view>
#include <vector>

namespace layer {

/// What is wrong with a file. Malformed lines were dropped; only the first ones are listed.
struct FileReport {
    struct Line {
        std::size_t Number;  // from 1; for a statement of several lines, its first line
        const char* Reason;
    };
    static constexpr std::size_t Limit = 20;

    std::vector<Line> Dropped;
    std::size_t DroppedCount = 0;  // of all dropped lines, listed or not
    bool LacksHeader = false;      // there are keys, but no header line before them; they count
};

/// Parses an export. No input fails: malformed lines are dropped.
/// @param file UTF-16 (low byte first) with a byte-order mark, UTF-8 with or without one, or narrow text after the
/// header REGEDIT4; less than 1 GB
/// @param report receives the malformed lines
/// @throws std::bad_alloc
RegistrySnapshot ReadRegistryFile(std::string_view file, FileReport& report);

}  // namespace layer
