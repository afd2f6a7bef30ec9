// The resources of loaded modules: compiled resource files (.res) in their section `.rsrc`.
#pragma once

#include "layer.h"

#include <optional>
#include <span>

namespace layer {

using Bytes = std::span<const std::byte>;

/// What an ELF note of this owner and type says in its descriptor: a 32-bit distance from the descriptor to the
/// resource data and a 32-bit count of its bytes.
inline constexpr char ResourceNoteOwner[8] = "Veltrix";
constexpr std::uint32_t ResourceNoteType = 1;

/// The resource file of a loaded module (null: the program), empty if it has none. Lives as long as the module.
Bytes ModuleResources(HINSTANCE module);

/// The data of a resource with a numeric type and name: in US English where the file has it, else neutral, else
/// the first. Nothing if the file has none; a malformed file ends where it stops making sense.
std::optional<Bytes> FindResource(Bytes file, WORD type, WORD name);

/// A row of the file's string tables, as the bytes of its units; empty for a row that is not there.
Bytes FindString(Bytes file, UINT row);

}  // namespace layer
