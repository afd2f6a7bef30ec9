// Narrow text inside the layer: the active code page and UTF-8.
#pragma once

#include "layer.h"

namespace layer {

/// The machine's code page: value `ACP` of the code page key in the settings store, where it names one that
/// the machine can convert, else UTF-8. Read once per process.
UINT ActiveCodePage();

/// One character taken off a narrow text.
struct NarrowCharacter {
    std::size_t Bytes;  // that it took, at least 1
    unsigned Units;     // 1 or 2; 0 for bytes that mean nothing
    WCHAR Unit[2];
};

/// Takes one character off UTF-8, of which `bytes` (at least 1) may be read, and never one behind the first
/// byte that cannot belong to the character.
NarrowCharacter TakeUtf8(const char* text, std::size_t bytes);

/// The same for text of the active code page. Allocates at most once per process.
NarrowCharacter TakeNarrow(const char* text, std::size_t bytes);

}  // namespace layer
