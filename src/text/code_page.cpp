// Conversion of text from and to the machine's active code page.
#include "text/code_page.h"

#include "errors/last_error.h"
#include "settings/tag_specification.h"
#include "system.h"

#include <cstring>

std::string NarrowText(const utility::wstring& text)
{
    // The platform refuses an empty text.
    if (text.empty())
        return {};
    const auto convert = [&text](char* to, int room) {
        const int bytes = WideCharToMultiByte(CP_ACP, 0, platform::Wide(text.data()), static_cast<int>(text.size()), to,
                                              room, nullptr, nullptr);
        if (bytes == 0)
            throw _com_error(LastErrorCode());
        return bytes;
    };
    std::string narrow(static_cast<std::size_t>(convert(nullptr, 0)), '\0');
    convert(narrow.data(), static_cast<int>(narrow.size()));
    return narrow;
}

utility::wstring WideText(const char* bytes)
{
    // No page makes more units than it has bytes.
    utility::wstring wide(std::strlen(bytes) + 1, u'\0');
    const int units =
        MultiByteToWideChar(CP_ACP, 0, bytes, -1, platform::Wide(wide.data()), static_cast<int>(wide.size()));
    if (units == 0)
        throw _com_error(LastErrorCode());
    wide.resize(static_cast<std::size_t>(units) - 1);
    return wide;
}
