// Contract of conversions between narrow and wide text by code page.
#include "convert.h"

#include <cstring>
#include <gtest/gtest.h>
#include <vector>

namespace {

using contract::ToNarrow;
using contract::ToWide;
using utility::wstring;

constexpr UINT UsAscii = 20127;
constexpr UINT Western = 1252;
constexpr UINT Japanese = 932;

wstring Units(std::u16string_view text)
{
    return {text.begin(), text.end()};
}

const std::string Long(1000, 'x');

TEST(TextConversion, BothWays)
{
    const struct {
        UINT Page;
        std::string Narrow;
        wstring Wide;
    } rows[] = {
        {CP_UTF8, "plain", Units(u"plain")},
        {CP_UTF8, std::string("a\0b", 3), Units(std::u16string_view(u"a\0b", 3))},
        {CP_UTF8, "\x7F\xC2\x80\xDF\xBF", Units(u"\u007F\u0080\u07FF")},
        {CP_UTF8, "\xE0\xA0\x80\xED\x9F\xBF\xEE\x80\x80\xEF\xBF\xBF", Units(u"\u0800\uD7FF\uE000\uFFFF")},
        {CP_UTF8, "\xF0\x90\x80\x80\xF4\x8F\xBF\xBF", Units(u"\U00010000\U0010FFFF")},
        {Western, "\x80 gr\xFC\xDF", Units(u"\u20AC gr\u00FC\u00DF")},
        {Western, Long + "\xE4" + Long, Units(std::u16string(1000, u'x') + u"\u00E4" + std::u16string(1000, u'x'))},
        {Japanese, "A\x88\xC0\x5C\xB1", Units(u"A\u5B89\\\uFF71")},
        {28605, "\xA4", Units(u"\u20AC")},
        {1250, "\xE8", Units(u"\u010D")},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(row.Narrow, ToNarrow(row.Page, row.Wide)) << row.Page;
        EXPECT_EQ(row.Wide, ToWide(row.Page, row.Narrow)) << row.Page << ' ' << row.Narrow;
        EXPECT_EQ(row.Wide, ToWide(row.Page, row.Narrow, MB_ERR_INVALID_CHARS)) << row.Page;
    }
}

TEST(TextConversion, InvalidUtf8AndUnpairedSurrogates)
{
    const struct {
        std::string Narrow;
        wstring Wide;
    } rows[] = {
        {"a\x80z", Units(u"a\uFFFDz")},                                        // a continuation byte alone
        {"\xC0\x80", Units(u"\uFFFD\uFFFD")},                                  // overlong
        {"\xF5", Units(u"\uFFFD")},           {"\xE2\x82", Units(u"\uFFFD")},  // cut off
        {"\xE2\x82z", Units(u"\uFFFDz")},     {"\xF0\x9F\x98", Units(u"\uFFFD")},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(row.Wide, ToWide(CP_UTF8, row.Narrow)) << row.Narrow;
        SetLastError(0);
        EXPECT_EQ(wstring(), ToWide(CP_UTF8, row.Narrow, MB_ERR_INVALID_CHARS));
        EXPECT_EQ(ERROR_NO_UNICODE_TRANSLATION, GetLastError());
    }
    EXPECT_EQ("a\xEF\xBF\xBDz", ToNarrow(CP_UTF8, {'a', 0xD800, 'z'}));
    EXPECT_EQ("\xEF\xBF\xBD\xEF\xBF\xBD", ToNarrow(CP_UTF8, {0xDC00, 0xD800}));
}

TEST(TextConversion, CharactersThatAPageDoesNotHave)
{
    EXPECT_EQ("a?b", ToNarrow(Western, Units(u"a\u5B89b")));
    EXPECT_EQ("??", ToNarrow(Western, Units(u"\U0001F600")));
    EXPECT_EQ("?", ToNarrow(UsAscii, {0xD800}));
    EXPECT_EQ(Units(u"a\u30FB"), ToWide(Japanese, "a\x88"));
    EXPECT_EQ(wstring(), ToWide(Japanese, "a\x88", MB_ERR_INVALID_CHARS));

    char narrow[4]{};
    BOOL used = 7;
    const wstring text = Units(u"a\u5B89");
    EXPECT_EQ(2, WideCharToMultiByte(Western, 0, platform::Wide(text.data()), 2, narrow, 4, "#", &used));
    EXPECT_STREQ("a#", narrow);
    EXPECT_EQ(TRUE, used);
    EXPECT_EQ(1, WideCharToMultiByte(Western, 0, platform::Wide(text.data()), 1, narrow, 4, "#", &used));
    EXPECT_EQ(FALSE, used);
}

TEST(TextConversion, LengthsAndSizes)
{
    const wstring wide = Units(u"a\u00E4z");
    for (const UINT page : {UINT{CP_UTF8}, Western}) {
        const int needed = page == CP_UTF8 ? 5 : 4;
        EXPECT_EQ(needed, WideCharToMultiByte(page, 0, platform::Wide(wide.c_str()), -1, nullptr, 0, nullptr, nullptr));
        for (int size = 1; size <= 6; ++size) {
            char narrow[8];
            std::memset(narrow, '#', sizeof narrow);
            SetLastError(0);
            const int result =
                WideCharToMultiByte(page, 0, platform::Wide(wide.c_str()), -1, narrow, size, nullptr, nullptr);
            EXPECT_EQ(size < needed ? 0 : needed, result) << page << ' ' << size;
            EXPECT_EQ(size < needed ? ERROR_INSUFFICIENT_BUFFER : 0, GetLastError());
            EXPECT_EQ('#', narrow[size]);
        }
    }
    for (const auto& [page, narrow] :
         {std::pair(UINT{CP_UTF8}, "a\xF0\x9F\x98\x80"), std::pair(Japanese, "a\x88\xC0z")}) {
        for (int size = 1; size <= 5; ++size) {
            unsigned short units[8];
            std::fill_n(units, 8, 0xBEEF);
            EXPECT_EQ(size < 4 ? 0 : 4, MultiByteToWideChar(page, 0, narrow, -1, platform::Wide(units), size))
                << page << ' ' << size;
            EXPECT_EQ(0xBEEF, units[size]);
        }
    }
}

TEST(TextConversion, InvalidArguments)
{
    const unsigned short wide[] = {'a', 0};
    char narrow[4];
    unsigned short units[4];
    const auto toNarrow = [&](UINT page, DWORD flags, const unsigned short* from, int length, char* to, int size) {
        SetLastError(0);
        EXPECT_EQ(0, WideCharToMultiByte(page, flags, platform::Wide(from), length, to, size, nullptr, nullptr));
        return GetLastError();
    };
    const auto toWide = [&](UINT page, DWORD flags, const char* from, int length, unsigned short* to, int size) {
        SetLastError(0);
        EXPECT_EQ(0, MultiByteToWideChar(page, flags, from, length, platform::Wide(to), size));
        return GetLastError();
    };
    EXPECT_EQ(ERROR_INVALID_PARAMETER, toNarrow(CP_UTF8, 0, nullptr, 1, narrow, 4));
    EXPECT_EQ(ERROR_INVALID_PARAMETER, toNarrow(CP_UTF8, 0, wide, 0, narrow, 4));
    EXPECT_EQ(ERROR_INVALID_PARAMETER, toNarrow(CP_UTF8, 0, wide, 1, narrow, -1));
    EXPECT_EQ(ERROR_INVALID_PARAMETER, toNarrow(CP_UTF8, 0, wide, 1, nullptr, 4));
    EXPECT_EQ(ERROR_INVALID_PARAMETER, toNarrow(99999, 0, wide, 1, narrow, 4));
    EXPECT_EQ(ERROR_INVALID_FLAGS, toNarrow(CP_UTF8, 0x40000000, wide, 1, narrow, 4));
    EXPECT_EQ(ERROR_INVALID_PARAMETER, toWide(CP_UTF8, 0, nullptr, 1, units, 4));
    EXPECT_EQ(ERROR_INVALID_PARAMETER, toWide(CP_UTF8, 0, "a", 0, units, 4));
    EXPECT_EQ(ERROR_INVALID_PARAMETER, toWide(CP_UTF8, 0, "a", 1, nullptr, 4));
    EXPECT_EQ(ERROR_INVALID_PARAMETER, toWide(99999, 0, "a", 1, units, 4));
    EXPECT_EQ(ERROR_INVALID_FLAGS, toWide(CP_UTF8, 0x40000000, "a", 1, units, 4));
}

}  // namespace
