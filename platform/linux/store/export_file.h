// The file of the settings store: an export of the platform's own registry editor.
#pragma once

#include "store/snapshot.h"

#include <string_view>

namespace layer {

/// What was left out of a malformed file. The first lines stand here, of the others only how many.
struct DroppedLines {
    struct Line {
        std::size_t Number;
        const char* Reason;
    };
    static constexpr std::size_t Limit = 20;

    std::vector<Line> First;
    std::size_t Count = 0;
};

/// Reads the bytes of an export: UTF-16 with its byte-order mark, or UTF-8. Any bytes give a store; what is
/// malformed is left out. `file` has less than 1 GB.
/// @throws std::bad_alloc
RegistrySnapshot ReadRegistryFile(std::string_view file, DroppedLines& dropped);

}  // namespace layer
