// The version block of a module's file: PE or ELF.
#pragma once

#include "resources/byte_source.h"
#include "system.h"

namespace layer {

// The number of a version block, as a type of resources and as the only name of that type.
constexpr WORD VersionType = 16;
constexpr WORD VersionName = 1;

/// Finds the version block of a file of any kind. A block has at most 65,535 bytes, the largest length that it can
/// state.
/// @return ERROR_SUCCESS, or the system error as FindPeResource and FindElfResource give it
DWORD FindVersionBlock(ByteSource& file, Extent& found);

}  // namespace layer
