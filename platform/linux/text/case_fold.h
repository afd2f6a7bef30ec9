// Names of the settings store compare without case: by the capital of each unit, on every machine alike.
#pragma once

#include "text/text.h"

namespace layer {

/// The capital of a unit beyond ASCII where it has a simple one, else the unit.
WCHAR FoldBeyondAscii(WCHAR unit);

inline WCHAR Fold(WCHAR unit)
{
    if (unit >= 0x80)
        return FoldBeyondAscii(unit);
    return unit >= 'a' && unit <= 'z' ? static_cast<WCHAR>(unit - ('a' - 'A')) : unit;
}

}  // namespace layer
