// Finds the resources of loaded modules, which are compiled resource files in their section `.rsrc`.
#pragma once

#include "resources/resource_file.h"

namespace layer {

// An ELF note with this owner and type points to resource data. Its descriptor is two 32-bit values: the signed
// distance from the descriptor to the data, which needs no relocation, and the number of bytes.
inline constexpr char ResourceNoteOwner[8] = "Veltrix";
constexpr std::uint32_t ResourceNoteType = 1;

/// The resource file of a loaded module, valid as long as the module is loaded.
/// @param module  null for the program
/// @return empty if the module has no resources, or no such module is loaded
Bytes ModuleResources(HINSTANCE module);

}  // namespace layer
