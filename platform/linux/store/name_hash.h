// The hash of names, the same for both cases of a letter. It depends on a secret of the process, so that no file can be
// made whose names have the same hash.
#pragma once

#include "text/text.h"

#include <cstdint>

namespace layer {

/// Extends `hash` by the units of `text`. The result is the same if a text is hashed in several parts, so the hash of a
/// path follows from that of its parent. The hash of an empty text is 0.
std::uint32_t ExtendHash(std::uint32_t hash, TextView text);

/// The hash of a number that is not 0 and less than 2^31. It differs from that of every text.
std::uint32_t HashOfNumber(std::uint32_t number);

}  // namespace layer
