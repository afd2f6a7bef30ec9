// Converts text to another form and back, for tests of the conversion.
#pragma once

#include "system.h"
#include "tessmaru/text.h"

#include <gtest/gtest.h>

namespace contract {

using utility::wstring;

inline std::string ToNarrow(UINT page, const wstring& wide)
{
    const int units = static_cast<int>(wide.size());
    const int room = WideCharToMultiByte(page, 0, platform::Wide(wide.data()), units, nullptr, 0, nullptr, nullptr);
    if (room <= 0)
        return "failed";
    std::string narrow(static_cast<std::size_t>(room), '\0');
    EXPECT_EQ(room,
              WideCharToMultiByte(page, 0, platform::Wide(wide.data()), units, narrow.data(), room, nullptr, nullptr));
    return narrow;
}

inline wstring ToWide(UINT page, const std::string& narrow, DWORD flags = 0)
{
    const int bytes = static_cast<int>(narrow.size());
    const int room = MultiByteToWideChar(page, flags, narrow.data(), bytes, nullptr, 0);
    if (room <= 0)
        return {};
    wstring wide(static_cast<std::size_t>(room), 0);
    EXPECT_EQ(room, MultiByteToWideChar(page, flags, narrow.data(), bytes, platform::Wide(wide.data()), room));
    return wide;
}

}  // namespace contract
