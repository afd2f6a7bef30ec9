// Conversion between UTF-8 and UTF-16 bytes, low byte first, as log files and exports of settings have them.
//
//     const std::string text = DecodeUtf16(ReadFile(log));
#pragma once

#include <string>
#include <string_view>

namespace testkit {

/// UTF-16 bytes as UTF-8. An unpaired surrogate becomes U+FFFD, and so does an odd byte at the end.
std::string DecodeUtf16(std::string_view bytes);

/// Valid UTF-8 as UTF-16 bytes, without a byte-order mark.
std::string EncodeUtf16(std::string_view utf8);

}  // namespace testkit
