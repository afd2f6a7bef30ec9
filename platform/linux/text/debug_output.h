// Debug output: goes to standard error if VELTRIX_DEBUG_OUTPUT is set, else nowhere.
#pragma once

#include <string>

namespace layer {

/// Writes one line of the layer, with the prefix "tessmarU: " and a line end.
/// @param line in UTF-8
void DebugLine(const std::string& line) noexcept;

}  // namespace layer
