// Finds the version block in a module's file, PE or ELF.
#pragma once

#include "resources/byte_source.h"
#include "system.h"

namespace layer {

// The numeric type of a version resource, and the only name in use for that type.
constexpr WORD VersionType = 16;
constexpr WORD VersionName = 1;

/// Finds the version block in a PE or ELF file. Bytes after the first 65,535 are cut off: a block cannot state a
/// greater length.
/// @param found  receives the range of the block, which is not empty
/// @return ERROR_SUCCESS, or the system error as FindPeResource and FindElfResource return it
DWORD FindVersionBlock(ByteSource& file, Extent& found);

}  // namespace layer
