// Text for calls of the platform, and from them.
#include "platform/windows/wide.h"

#include <windows.h>

#include <algorithm>
#include <system_error>

namespace tool::platform {

std::wstring Wide(const std::string& text)
{
    const int units = MultiByteToWideChar(CP_UTF8, 0, text.c_str(), -1, nullptr, 0);
    std::wstring wide(static_cast<std::size_t>(std::max(units, 1)), L'\0');
    MultiByteToWideChar(CP_UTF8, 0, text.c_str(), -1, wide.data(), units);
    wide.pop_back();
    return wide;
}

std::string Narrow(const wchar_t* text)
{
    const int bytes = WideCharToMultiByte(CP_UTF8, 0, text, -1, nullptr, 0, nullptr, nullptr);
    std::string narrow(static_cast<std::size_t>(std::max(bytes, 1)), '\0');
    WideCharToMultiByte(CP_UTF8, 0, text, -1, narrow.data(), bytes, nullptr, nullptr);
    narrow.pop_back();
    return narrow;
}

std::string LastErrorText()
{
    const std::error_code error(static_cast<int>(GetLastError()), std::system_category());
    const std::error_condition condition = error.default_error_condition();
    return condition.category() == std::generic_category() ? condition.message()
                                                           : "error " + std::to_string(error.value());
}

}  // namespace tool::platform
