// The types of text inside the layer: 16-bit units, UTF-16 where they mean text.
#pragma once

#include "tessmaru/platform.h"

#include <string>
#include <string_view>

namespace layer {

using Text = std::basic_string<WCHAR>;
using TextView = std::basic_string_view<WCHAR>;

}  // namespace layer
