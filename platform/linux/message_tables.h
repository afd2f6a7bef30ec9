// Where the message service finds its texts: the layer's own sentences for the system's codes, and the message tables
// that modules carry.
#pragma once

#include "module_resources.h"

namespace layer {

/// The sentence for a system error, as it stands or in an HRESULT, or for an HRESULT; without a line end, and empty
/// for a code that has none.
std::string_view SystemMessage(DWORD code);

/// Takes the text of this number out of the message table of a module's resources. A malformed table ends where it
/// stops making sense.
/// @return ERROR_SUCCESS, or the system error that says why there is no such text.
/// @throws std::bad_alloc
DWORD FindMessage(Bytes resources, DWORD number, Text& text);

}  // namespace layer
