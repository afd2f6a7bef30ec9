// Conversions between UTF-8 and the library's 16-bit text.
#pragma once

#include "tessmaru/text.h"

#include <string>
#include <string_view>

namespace tool {

/// A lone surrogate becomes U+FFFD.
std::string ToUtf8(const utility::wstring& text);

/// What is no UTF-8 becomes U+FFFD, byte by byte.
std::u16string ToUtf16(std::string_view text);
utility::wstring FromUtf8(std::string_view text);

/// UTF-8 that is safe on a terminal: control characters are escaped.
std::string Shown(std::string_view text);

}  // namespace tool
