// Where the message service finds its texts: the layer's own sentences for the system's codes, and the message tables
// that modules carry.
#pragma once

#include "layer.h"

#include <optional>

namespace layer {

/// The sentence for a system error, as it stands or in an HRESULT, or for an HRESULT; without a line end, and empty
/// for a code that has none.
std::string_view SystemMessage(DWORD code);

/// The text of this number in the message table of a module (null: the program), or the system error that says why
/// there is none.
/// @throws std::bad_alloc
DWORD ModuleMessage(HINSTANCE module, DWORD number, Text& text);

}  // namespace layer
