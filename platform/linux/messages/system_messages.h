// The message service's own sentences, one for each code of the system.
#pragma once

#include "system.h"

#include <string_view>

namespace layer {

/// The sentence for a system error, given as it is or in an HRESULT, or for an HRESULT. Without a line end; empty for a
/// code that has none.
std::string_view SystemMessage(DWORD code);

}  // namespace layer
