// Where the last records of a file start.
#pragma once

#include "platform/file.h"
#include "verbs/log/filter.h"

#include <cstddef>
#include <cstdint>

namespace tool {

/// The offset of the last `count` wanted entries of a file, which is read from its end; 0 if there are fewer.
std::uint64_t StartOfLast(platform::InputFile& file, std::size_t count, Filter& filter);

}  // namespace tool
