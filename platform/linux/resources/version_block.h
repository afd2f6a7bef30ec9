// Makes version blocks that were read from files safe to query.
#pragma once

#include <cstddef>

namespace layer {

/// Limits the length that a block states to the number of its bytes. VerQueryValueW does not get the number of bytes,
/// so it relies on the stated length.
/// @return false if there are too few bytes for a block
bool ClampVersionBlock(std::byte* block, std::size_t size);

}  // namespace layer
