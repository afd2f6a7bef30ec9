// UTF-8 and the wide text of Windows.
#pragma once

#include <string>
#include <string_view>

#include <windows.h>

namespace testkit {

inline std::wstring WideFromUtf8(std::string_view text)
{
    const int bytes = static_cast<int>(text.size());
    std::wstring wide(text.size(), L'\0');
    const int units = MultiByteToWideChar(CP_UTF8, 0, text.data(), bytes, wide.data(), bytes);
    wide.resize(static_cast<std::size_t>(units));
    return wide;
}

inline std::string Utf8FromWide(std::wstring_view text)
{
    const int units = static_cast<int>(text.size());
    std::string narrow(text.size() * 3, '\0');
    const int bytes = WideCharToMultiByte(CP_UTF8, 0, text.data(), units, narrow.data(),
                                          static_cast<int>(narrow.size()), nullptr, nullptr);
    narrow.resize(static_cast<std::size_t>(bytes));
    return narrow;
}

}  // namespace testkit
