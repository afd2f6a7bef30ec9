// The active code page: the encoding of narrow text on this machine.
#pragma once

#include "text/utf8.h"

namespace layer {

/// The number of the active code page: the value `ACP` of the code page key in the settings store if the machine can
/// convert that page, else UTF-8. It is read once per process.
UINT ActiveCodePage();

/// Decodes the first character of a text in the active code page. Memory is allocated once per process at most.
/// @param bytes the size of the text, at least 1
DecodedCharacter DecodeNarrow(const char* text, std::size_t bytes);

}  // namespace layer
