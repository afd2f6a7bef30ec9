// The version block of a module file: where it stands in the file, and what is in it.
#pragma once

#include "resource_file.h"

namespace layer {

// The number of a version block, as a type of resources and as the one name of that type.
constexpr WORD VersionType = 16;
constexpr WORD VersionName = 1;

/// Finds a resource in a PE file of either kind, or in the section `.rsrc` of an ELF file of either kind. The amount of
/// work is bounded by the size of the source, and so is what is found, as far as the file tells.
/// @return ERROR_SUCCESS; ERROR_BAD_EXE_FORMAT for a file of another kind; or why there is no such resource:
///         ERROR_RESOURCE_DATA_NOT_FOUND, ERROR_RESOURCE_TYPE_NOT_FOUND, ERROR_RESOURCE_NAME_NOT_FOUND.
DWORD FindPeResource(ByteSource& file, WORD type, WORD name, Extent& found);
DWORD FindElfResource(ByteSource& file, WORD type, WORD name, Extent& found);

/// The same for the version block of a file of any of these kinds. No block is larger than its own length can say.
DWORD FindVersionBlock(ByteSource& file, Extent& found);

/// Makes a block that was read safe for VerQueryValueW, which knows of its size only what the block itself says.
/// @return false if it is too short to be one.
bool SealVersionBlock(std::byte* block, std::size_t size);

}  // namespace layer
