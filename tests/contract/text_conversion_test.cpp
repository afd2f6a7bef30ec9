// Contract of conversions between narrow and wide text by code page.
#include "convert.h"

#include <cstdint>
#include <cstring>
#include <gtest/gtest.h>
#include <numeric>
#include <string_view>
#include <type_traits>

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
        {Western, "\x81\x9D", {0x81, 0x9D}},
        {936, "\xAA\xA1", {0xE000}},
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

TEST(TextConversion, BestFit)
{
    const struct {
        UINT Page;
        unsigned short Unit;
        std::string BestFit;
        std::string Exact;  // with WC_NO_BEST_FIT_CHARS and the default character '#'
    } rows[] = {
        {Western, 0x141, "L", "#"},     {Western, 0x391, "?", "#"},
        {Western, 0x191, "\x83", "#"},  {1250, 0x141, "\xA3", "\xA3"},
        {Japanese, 0xE9, "e", "#"},     {Japanese, 0x301C, "?", "#"},
        {936, 0xF9F6, "\xC5\x52", "#"}, {950, 0x2550, "\xF9\xF9", "\xF9\xF9"},
    };
    for (const auto& row : rows) {
        const auto narrow = [&row](DWORD flags, const char* byDefault, BOOL* used) {
            char code[4];
            const int bytes =
                WideCharToMultiByte(row.Page, flags, platform::Wide(&row.Unit), 1, code, sizeof code, byDefault, used);
            return std::string(code, static_cast<std::size_t>(bytes));
        };
        BOOL used = 7;
        EXPECT_EQ(row.BestFit, narrow(0, nullptr, &used)) << row.Page << ' ' << row.Unit;
        EXPECT_EQ(row.BestFit == "?", used == TRUE) << row.Page << ' ' << row.Unit;
        EXPECT_EQ(row.Exact, narrow(WC_NO_BEST_FIT_CHARS, "#", &used)) << row.Page << ' ' << row.Unit;
        EXPECT_EQ(row.Exact == "#", used == TRUE) << row.Page << ' ' << row.Unit;
    }
}

/// A checksum of texts (FNV-1a).
class Digest {
public:
    template <class Text>
    void Add(const Text& text)
    {
        for (const auto unit : text)
            Value = (Value ^ static_cast<std::make_unsigned_t<decltype(unit)>>(unit)) * 0x100000001B3;
    }
    std::uint64_t Value = 0xCBF29CE484222325;
};

/// The narrow forms of all units, with and without best fit. Two default characters show what has no form.
std::uint64_t DigestOfNarrow(UINT page)
{
    wstring all(0x10000, 0);
    std::iota(all.begin(), all.end(), static_cast<unsigned short>(0));
    std::string narrow(2 * all.size(), '\0');
    Digest digest;
    const auto add = [&](DWORD flags, const char* byDefault) {
        const int bytes = WideCharToMultiByte(page, flags, platform::Wide(all.data()), static_cast<int>(all.size()),
                                              narrow.data(), static_cast<int>(narrow.size()), byDefault, nullptr);
        digest.Add(std::string_view(narrow).substr(0, static_cast<std::size_t>(bytes)));
    };
    add(0, "?");
    add(0, "\1");
    add(WC_NO_BEST_FIT_CHARS, "\1");
    return digest.Value;
}

/// The wide forms of all bytes, and in a page of double bytes of all pairs, malformed ones too.
std::uint64_t DigestOfWide(UINT page)
{
    const int seconds = page == Japanese || (page >= 936 && page <= 950) ? 256 : 1;
    std::string all;
    Digest digest;
    const auto add = [&](const std::string& bytes) {
        all += bytes + "00";  // no second byte of any page
        unsigned short units[2];
        const int count = MultiByteToWideChar(page, MB_ERR_INVALID_CHARS, bytes.data(), static_cast<int>(bytes.size()),
                                              platform::Wide(units), 2);
        digest.Add(wstring(units, static_cast<std::size_t>(count)) += '|');
    };
    for (int first = 0; first < 256; ++first) {
        add({static_cast<char>(first)});
        for (int second = 0; first >= 0x80 && second < seconds; ++second)
            add({static_cast<char>(first), static_cast<char>(second)});
    }
    digest.Add(ToWide(page, all + "\xFE"));
    return digest.Value;
}

// The digests are those of the platform: a run on Windows proves them. tools/code_page_dump prints what differs.
TEST(TextConversion, EveryCharacterOfTheActivePages)
{
    const struct {
        UINT Page;
        std::uint64_t Narrow;
        std::uint64_t Wide;
    } rows[] = {
        {874, 0xD484A1A68224A729, 0x71E352F7C0C8A132},  {932, 0x3CCBEB5774DF753E, 0x753842D2AB8D911F},
        {936, 0xDB2087D89AFF7D16, 0x957FF61BA00D0AAF},  {949, 0x553237A2A087AA11, 0x3E3501C08E2BDAD9},
        {950, 0x34C3F06039AAD855, 0x716CF1554BB71AEC},  {1250, 0xF67448DD43A46B33, 0x38BE1E7F3629054E},
        {1251, 0x3DC18B9EDB976221, 0xA19D43B728181359}, {1252, 0xBA070C7487186ED7, 0x0BE6710AC22E866D},
        {1253, 0x575D40D3C75962CB, 0x35FC4C9B12EA4CAD}, {1254, 0x76D80C69A053FA79, 0x175D22BCB4E11C3E},
        {1255, 0x1F9CAAB66B2C5F29, 0xA5928295AC87B494}, {1256, 0x396616A2AFE205A7, 0xDA8DC29B965E759C},
        {1257, 0x04C5DD613BAD25D1, 0xB49826AC62EC6D69}, {1258, 0xED7EF9BE085A6E3F, 0x73AF1A8652BBF190},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(row.Narrow, DigestOfNarrow(row.Page)) << row.Page;
        EXPECT_EQ(row.Wide, DigestOfWide(row.Page)) << row.Page;
    }
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
    EXPECT_EQ(ERROR_INVALID_FLAGS, toNarrow(Western, 0x40000000, wide, 1, narrow, 4));
    EXPECT_EQ(ERROR_INVALID_PARAMETER, toWide(CP_UTF8, 0, nullptr, 1, units, 4));
    EXPECT_EQ(ERROR_INVALID_PARAMETER, toWide(CP_UTF8, 0, "a", 0, units, 4));
    EXPECT_EQ(ERROR_INVALID_PARAMETER, toWide(CP_UTF8, 0, "a", 1, nullptr, 4));
    EXPECT_EQ(ERROR_INVALID_PARAMETER, toWide(99999, 0, "a", 1, units, 4));
    EXPECT_EQ(ERROR_INVALID_FLAGS, toWide(CP_UTF8, 0x40000000, "a", 1, units, 4));
}

}  // namespace
