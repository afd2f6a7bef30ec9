// Capital letters beyond ASCII, from a built-in table: the result depends on no locale, and no memory is allocated. The
// table covers the Latin, Greek, Cyrillic and Armenian letters that form regular pairs. All other units are unchanged.
#include "text/case_fold.h"

#include <algorithm>
#include <iterator>

namespace {

/// The small letters First, First + Step, … Last. The capital of each is the letter minus Offset. Step 2 is for
/// alphabets in which capitals and small letters alternate.
struct CaseRange {
    WCHAR First;
    WCHAR Last;
    WCHAR Step;
    int Offset;
};

// Sorted, for the binary search.
constexpr CaseRange CaseRanges[] = {
    {0x00E0, 0x00F6, 1, 32}, {0x00F8, 0x00FE, 1, 32}, {0x00FF, 0x00FF, 1, -121}, {0x0101, 0x012F, 2, 1},
    {0x0133, 0x0137, 2, 1},  {0x013A, 0x0148, 2, 1},  {0x014B, 0x0177, 2, 1},    {0x017A, 0x017E, 2, 1},
    {0x01CE, 0x01DC, 2, 1},  {0x01DF, 0x01EF, 2, 1},  {0x01F9, 0x021F, 2, 1},    {0x0223, 0x0233, 2, 1},
    {0x03AC, 0x03AC, 1, 38}, {0x03AD, 0x03AF, 1, 37}, {0x03B1, 0x03C1, 1, 32},   {0x03C3, 0x03CB, 1, 32},
    {0x03CC, 0x03CC, 1, 64}, {0x03CD, 0x03CE, 1, 63}, {0x0430, 0x044F, 1, 32},   {0x0450, 0x045F, 1, 80},
    {0x0461, 0x0481, 2, 1},  {0x048B, 0x04BF, 2, 1},  {0x04C2, 0x04CE, 2, 1},    {0x04D1, 0x052F, 2, 1},
    {0x0561, 0x0586, 1, 48}, {0x1E01, 0x1E95, 2, 1},  {0x1EA1, 0x1EFF, 2, 1},    {0xFF41, 0xFF5A, 1, 32},
};

}  // namespace

WCHAR layer::FoldNonAscii(WCHAR unit)
{
    const CaseRange* const range = std::lower_bound(std::begin(CaseRanges), std::end(CaseRanges), unit,
                                                    [](const CaseRange& one, WCHAR other) { return one.Last < other; });
    if (range == std::end(CaseRanges) || unit < range->First || (unit - range->First) % range->Step != 0)
        return unit;
    return static_cast<WCHAR>(unit - range->Offset);
}
