// The key of a password: a checksum of its first characters in the machine's code page.
#include "errors/last_error.h"
#include "frame/crc32.h"
#include "settings/tag_specification.h"
#include "system.h"
#include "tessmaru/frame.h"

#include <algorithm>
#include <iterator>

ULONG utility::genEncryptKeyFromPassword(const wstring& password)
{
    // Only the first eight characters count, and none after a zero.
    constexpr std::size_t most = 8;
    unsigned short wide[most + 1]{};
    const auto end =
        std::find(password.begin(), password.begin() + static_cast<std::ptrdiff_t>(std::min(most, password.size())), 0);
    const auto units = static_cast<std::size_t>(std::copy(password.begin(), end, wide) - wide);

    // Two bytes for each character. The rest stays zero and is part of the key.
    char narrow[2 * std::size(wide)]{};
    if (WideCharToMultiByte(CP_ACP, 0, platform::Wide(wide), -1, narrow, static_cast<int>(2 * (units + 1)), nullptr,
                            nullptr) == 0)
        throw _com_error(LastErrorCode());

    // As many bytes count as there are characters. In a code page with two bytes for a character the rest is lost: the
    // keys of the network's other machines are made the same way.
    unsigned char bytes[most]{};
    std::copy_n(narrow, units, bytes);
    return frame::calcCrc32(bytes, most);
}
