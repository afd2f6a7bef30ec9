// The texts of the system's error codes: one plain sentence per code.
#pragma once

#include "system.h"

#include <string_view>

namespace layer {

/// The sentence for a code.
/// @param code  a system error, the HRESULT made from one, or any other HRESULT
/// @return the sentence without a line end; empty if there is none
std::string_view SystemMessage(DWORD code);

}  // namespace layer
