// Finds resources in ELF files, which have a compiled resource file in their section `.rsrc`.
#pragma once

#include "resources/byte_source.h"
#include "system.h"

namespace layer {

/// Finds a resource by type and name in a little-endian ELF file of 32 or 64 bits. The time is bounded, whatever the
/// size of the source: at most 65,535 sections are read, and the entries that FindResource reads.
/// @param found  receives the range of the data
/// @return ERROR_SUCCESS; ERROR_BAD_EXE_FORMAT for a file of another kind; or the reason why there is no such resource:
///         ERROR_RESOURCE_DATA_NOT_FOUND, ERROR_RESOURCE_TYPE_NOT_FOUND
DWORD FindElfResource(ByteSource& file, WORD type, WORD name, Extent& found);

}  // namespace layer
