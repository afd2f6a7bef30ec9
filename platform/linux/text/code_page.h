// What the layer knows about the code pages that can be active on Windows: whole pages of single bytes, what `iconv`
// does differently in the pages of double bytes, and the best fit of characters that a page lacks.
#pragma once

#include "system.h"

#include <cstdint>
#include <optional>
#include <span>

namespace layer {

/// Units of a page of double bytes, with the code of the first one. The others have the next codes.
struct CodeRun {
    WCHAR Unit;
    std::uint16_t Code;  // of one or two bytes; 0 if the units have no code
    std::uint8_t Count;
};

/// The tables of one page. Bytes below 80 are ASCII in all of them.
struct CodePage {
    UINT Number;
    const WCHAR* Upper;             // the units of the bytes from 80 on; null in a page of double bytes
    std::span<const CodeRun> Runs;  // by unit: where `iconv` has another code, or none

    bool singleBytes() const { return Upper != nullptr; }
    /// The unit of a byte in a page of single bytes.
    WCHAR UnitOf(unsigned char byte) const { return byte < 0x80 ? WCHAR{byte} : Upper[byte - 0x80]; }
};

/// The tables of a page. @return null for a page that only `iconv` knows
const CodePage* FindCodePage(UINT number);

/// The byte of a unit from 80 on, in a page of single bytes.
std::optional<unsigned char> ByteOf(const CodePage& page, WCHAR unit);

/// The run of a unit in a page of double bytes. @return null if there is none
const CodeRun* FindRun(const CodePage& page, WCHAR unit);

/// The unit of a code of one or two bytes in the runs of a page of double bytes. @return 0 if there is none
WCHAR UnitOfCode(const CodePage& page, unsigned code);

/// The unit whose code is used for a unit that the page lacks. @return 0 if there is none
WCHAR BestFitOf(const CodePage& page, WCHAR unit);

/// Whether a unit is in the private use area. Bytes without a character have such units in some pages.
constexpr bool IsPrivateUse(WCHAR unit)
{
    return unit >= 0xE000 && unit < 0xF900;
}

}  // namespace layer
