// Encodes wide text in a code page other than UTF-8: by the layer's tables, by the `iconv` of the C library, or by
// both.
#pragma once

#include "text/code_page.h"
#include "text/iconv_converter.h"
#include "text/text.h"

namespace layer {

/// An encoder has a state, so threads must not share one: each call opens its own.
class PageEncoder {
public:
    /// @param bestFit whether a character that the page lacks becomes a similar one
    PageEncoder(UINT codePage, bool bestFit);

    /// Whether the machine can convert the page.
    bool open() const { return !Iconv || Iconv->open(); }
    /// The system error if it is not open.
    DWORD openError() const { return Iconv->openError(); }

    /// Encodes `from` up to its end, or up to the first unit without a code, and removes what was encoded.
    /// @return false if `from` now begins with a unit without a code
    bool Encode(TextView& from, Sink<char>& sink);

private:
    bool EncodeSingleByte(WCHAR unit, Sink<char>& sink) const;
    bool EncodeException(WCHAR unit, Sink<char>& sink);
    bool EncodeByIconv(TextView& from, std::size_t units, Sink<char>& sink);
    bool IsException(WCHAR unit) const;
    WCHAR Substitute(WCHAR unit) const { return BestFit ? BestFitOf(*Page, unit) : WCHAR{0}; }

    const CodePage* const Page;      // null for a page that only `iconv` knows
    std::optional<Converter> Iconv;  // none for a page of single bytes with a table
    const bool BestFit;
};

}  // namespace layer
