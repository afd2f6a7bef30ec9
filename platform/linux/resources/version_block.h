// The bytes of a version block.
#pragma once

#include <cstddef>

namespace layer {

/// Makes a block that was read safe for VerQueryValueW, which knows no size but the one that the block states.
/// @return false if it is too short to be a block
bool SealVersionBlock(std::byte* block, std::size_t size);

}  // namespace layer
