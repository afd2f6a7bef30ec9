// Translates the numbers of code pages to the names that `iconv` uses. Most of these are "CP" and the number.
#include "text/iconv_converter.h"

#include <bit>
#include <charconv>
#include <cstring>

namespace layer {

const char WideCharset[] = {'U', 'T', 'F', '-', '1', '6', std::endian::native == std::endian::little ? 'L' : 'B',
                            'E', '\0'};

CharsetName CharsetNameOf(UINT codePage)
{
    struct Entry {
        UINT CodePage;
        const char* Name;
    };
    static constexpr Entry named[] = {{20127, "US-ASCII"}, {20866, "KOI8-R"},   {20932, "EUC-JP"}, {21866, "KOI8-U"},
                                      {51932, "EUC-JP"},   {51936, "EUC-CN"},   {51949, "EUC-KR"}, {54936, "GB18030"},
                                      {1361, "JOHAB"},     {10000, "MACINTOSH"}};
    CharsetName name{};
    const auto found = std::find_if(std::begin(named), std::end(named),
                                    [&](const Entry& entry) { return entry.CodePage == codePage; });
    if (found != std::end(named)) {
        std::strncpy(name.data(), found->Name, name.size() - 1);
        return name;
    }
    // The pages 28591 to 28606 are ISO 8859-1 to 8859-16.
    constexpr UINT FirstIso = 28591;
    constexpr UINT LastIso = 28606;
    const bool iso = codePage >= FirstIso && codePage <= LastIso;
    const std::string_view prefix = iso ? "ISO-8859-" : "CP";
    prefix.copy(name.data(), prefix.size());
    std::to_chars(name.data() + prefix.size(), name.data() + name.size() - 1, iso ? codePage - FirstIso + 1 : codePage);
    return name;
}

}  // namespace layer
