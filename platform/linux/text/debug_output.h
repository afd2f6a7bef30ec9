// Debug output: to standard error if VELTRIX_DEBUG_OUTPUT is set, else nowhere.
#pragma once

#include <string>

namespace layer {

/// Writes one line of the layer's own, with "tessmarU: " before it.
void DebugLine(const std::string& line) noexcept;

}  // namespace layer
