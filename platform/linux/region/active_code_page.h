// The active code page: the machine's narrow text.
#pragma once

#include "text/utf8.h"

namespace layer {

/// The machine's code page: value `ACP` of the code page key in the settings store if the machine can convert that
/// page, else UTF-8. Read once per process.
UINT ActiveCodePage();

/// Decodes the first character of text in the active code page, of `bytes` bytes, at least 1. Allocates at most once
/// per process.
DecodedCharacter DecodeNarrow(const char* text, std::size_t bytes);

}  // namespace layer
