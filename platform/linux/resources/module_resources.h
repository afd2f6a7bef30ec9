// The resources of loaded modules: compiled resource files in their section `.rsrc`.
#pragma once

#include "resources/resource_file.h"

namespace layer {

/// What an ELF note of this owner and type says in its descriptor: a 32-bit distance from the descriptor to the
/// resource data and a 32-bit count of its bytes.
inline constexpr char ResourceNoteOwner[8] = "Veltrix";
constexpr std::uint32_t ResourceNoteType = 1;

/// The resource file of a loaded module (null: the program), empty if it has none. Lives as long as the module.
Bytes ModuleResources(HINSTANCE module);

}  // namespace layer
