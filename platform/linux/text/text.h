// The text types of the layer: sequences of 16-bit units, usually UTF-16.
#pragma once

#include "tessmaru/platform.h"

#include <string>
#include <string_view>

namespace layer {

// Units need not form valid UTF-16: unpaired surrogates occur, and zero units inside a Text too.
using Text = std::basic_string<WCHAR>;
using TextView = std::basic_string_view<WCHAR>;

}  // namespace layer
