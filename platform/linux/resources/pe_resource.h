// Finds resources in PE files.
#pragma once

#include "resources/byte_source.h"
#include "system.h"

namespace layer {

/// Finds a resource by type and name in a PE file, PE32 or PE32+. The time is bounded, whatever the size of the
/// source: the file has at most 65,535 sections, and each directory as many entries.
/// @param found  receives the range of the data
/// @return ERROR_SUCCESS; ERROR_BAD_EXE_FORMAT for a file of another kind; or the reason why there is no such resource:
///         ERROR_RESOURCE_DATA_NOT_FOUND, ERROR_RESOURCE_TYPE_NOT_FOUND, ERROR_RESOURCE_NAME_NOT_FOUND,
///         ERROR_RESOURCE_LANG_NOT_FOUND
DWORD FindPeResource(ByteSource& file, WORD type, WORD name, Extent& found);

}  // namespace layer
