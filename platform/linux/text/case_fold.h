// Case folding for comparisons that ignore case. Each unit is replaced by its capital, on every machine alike.
#pragma once

#include "text/text.h"

namespace layer {

/// Folds a unit beyond ASCII. @return its capital, or the unit itself if the table has no capital for it
WCHAR FoldNonAscii(WCHAR unit);

/// Folds any unit. The common case, ASCII, is inline because lookups fold every unit of a name.
inline WCHAR Fold(WCHAR unit)
{
    if (unit >= 0x80)
        return FoldNonAscii(unit);
    return unit >= 'a' && unit <= 'z' ? static_cast<WCHAR>(unit - ('a' - 'A')) : unit;
}

}  // namespace layer
