// Conversion between ASCII and the library's text, for texts of tests.
//
//     log.SetSource(Wide("Import").c_str());   EXPECT_EQ(Narrow(text), "Import");
#pragma once

#include "tessmaru/text.h"

#include <string>
#include <string_view>

namespace testkit {

/// ASCII as the library's text.
inline utility::wstring Wide(std::string_view text)
{
    return {text.begin(), text.end()};
}

/// The library's text as ASCII; any other unit becomes '?'.
inline std::string Narrow(std::basic_string_view<unsigned short> text)
{
    std::string narrow;
    for (const unsigned short unit : text)
        narrow += unit < 0x80 ? static_cast<char>(unit) : '?';
    return narrow;
}

}  // namespace testkit
