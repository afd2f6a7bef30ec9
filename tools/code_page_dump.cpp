// Prints what the platform's conversions do with every character of the code pages that can be active on Windows: the
// source for make_code_pages.py when it runs on Windows, and for a comparison with that when it runs on Linux.
//
//     W 0141 4C best     the unit U+0141 becomes the byte 4C, but not with WC_NO_BEST_FIT_CHARS
//     B D2 F8FA lenient  the byte D2 becomes U+F8FA, but not with MB_ERR_INVALID_CHARS
//
// Units without a code and codes without a unit are left out.
#include "system.h"
#include "tessmaru/text.h"

#include <cstdio>
#include <string>

namespace {

/// The code of a unit, without the replacement by a default character. @return empty if there is none
std::string CodeOf(UINT page, DWORD flags, unsigned short unit)
{
    char code[8];
    BOOL usedDefault = FALSE;
    const int bytes =
        WideCharToMultiByte(page, flags, platform::Wide(&unit), 1, code, sizeof code, nullptr, &usedDefault);
    return usedDefault != FALSE || bytes <= 0 ? std::string() : std::string(code, static_cast<std::size_t>(bytes));
}

void PrintUnit(UINT page, unsigned short unit)
{
    const std::string code = CodeOf(page, 0, unit);
    if (code.empty())
        return;
    std::printf("W %04X ", static_cast<unsigned>(unit));
    for (const char byte : code)
        std::printf("%02X", static_cast<unsigned>(static_cast<unsigned char>(byte)));
    std::puts(CodeOf(page, WC_NO_BEST_FIT_CHARS, unit).empty() ? " best" : "");
}

/// Prints the unit of a code, if it has exactly one.
void PrintCode(UINT page, const std::string& code, bool lenient)
{
    unsigned short units[4];
    const int bytes = static_cast<int>(code.size());
    const bool strict =
        MultiByteToWideChar(page, MB_ERR_INVALID_CHARS, code.data(), bytes, platform::Wide(units), 4) == 1;
    if (!strict && (!lenient || MultiByteToWideChar(page, 0, code.data(), bytes, platform::Wide(units), 4) != 1))
        return;
    std::fputs("B ", stdout);
    for (const char byte : code)
        std::printf("%02X", static_cast<unsigned>(static_cast<unsigned char>(byte)));
    std::printf(" %04X%s\n", static_cast<unsigned>(units[0]), strict ? "" : " lenient");
}

}  // namespace

int main()
{
    for (const UINT page :
         {874U, 932U, 936U, 949U, 950U, 1250U, 1251U, 1252U, 1253U, 1254U, 1255U, 1256U, 1257U, 1258U}) {
        std::printf("page %u\n", static_cast<unsigned>(page));
        for (unsigned unit = 0; unit < 0x10000; ++unit)
            PrintUnit(page, static_cast<unsigned short>(unit));
        for (int first = 0; first < 256; ++first) {
            PrintCode(page, {static_cast<char>(first)}, true);
            for (int second = 1; second < 256; ++second)
                PrintCode(page, {static_cast<char>(first), static_cast<char>(second)}, false);
        }
    }
}
