// Decodes narrow text of a code page other than UTF-8: by the layer's tables, by the `iconv` of the C library, or by
// both.
#pragma once

#include "text/code_page.h"
#include "text/iconv_converter.h"

namespace layer {

/// A decoder has a state, so threads must not share one: each call opens its own.
class PageDecoder {
public:
    explicit PageDecoder(UINT codePage);

    /// Whether the machine can convert the page, and if not, whether it only lacks memory.
    bool open() const { return !Iconv || Iconv->open(); }
    bool outOfMemory() const { return Iconv && Iconv->outOfMemory(); }
    /// The system error if it is not open.
    DWORD openError() const { return Iconv->openError(); }

    /// Decodes `from` up to its end, or up to the first malformed character, and removes what was decoded.
    /// @param strict whether a single byte without a character is malformed, if it has a unit for private use
    /// @return false if `from` now begins with a malformed character
    bool Decode(std::string_view& from, Sink<WCHAR>& sink, bool strict);

    /// The size of the malformed character at the beginning of `from`.
    std::size_t MalformedBytes(std::string_view from) const;

private:
    static bool DecodeSingleBytes(const CodePage& page, std::string_view& from, Sink<WCHAR>& sink, bool strict);
    bool DecodeException(std::string_view& from, Sink<WCHAR>& sink, bool strict) const;

    const CodePage* const Page;      // null for a page that only `iconv` knows
    std::optional<Converter> Iconv;  // none for a page of single bytes with a table
};

}  // namespace layer
