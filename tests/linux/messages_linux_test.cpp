// Message templates on Linux: failures, and the caller's argument list.
#include "contract/expand.h"

namespace {

using contract::Expanded;
using contract::FromArray;
using testkit::Wide;

/// On Linux a failure leaves the buffer alone.
Expanded Expand(DWORD flags, const std::string& text, DWORD size, va_list* arguments)
{
    return contract::Expand(flags, text, size, arguments, true);
}

Expanded ExpandArray(const std::string& text, const std::vector<DWORD_PTR>& values)
{
    return contract::ExpandArray(text, values, 256, true);
}

TEST(MessagesOnLinux, LimitsOfTemplates)
{
    EXPECT_EQ((Expanded{"", ERROR_INSUFFICIENT_BUFFER}), Expand(FORMAT_MESSAGE_FROM_STRING, "abc", 3, nullptr));
    EXPECT_EQ((Expanded{"", ERROR_INSUFFICIENT_BUFFER}), Expand(FORMAT_MESSAGE_FROM_STRING, "abc", 0, nullptr));
    EXPECT_EQ((Expanded{""}), Expand(FORMAT_MESSAGE_FROM_STRING, "", 64, nullptr));
    EXPECT_EQ((Expanded{"%1 %"}),
              Expand(FORMAT_MESSAGE_FROM_STRING | FORMAT_MESSAGE_IGNORE_INSERTS, "%1 %%", 64, nullptr));
    EXPECT_EQ((Expanded{"", ERROR_INSUFFICIENT_BUFFER}), ExpandArray("%1!2147483647d!", {1}));
    EXPECT_EQ((Expanded{"", ERROR_MORE_DATA}),
              Expand(FORMAT_MESSAGE_FROM_STRING | 40, std::string(65'537, 'a'), 9, nullptr));
}

TEST(MessagesOnLinux, LinesAreWrapped)
{
    const utility::wstring words = Wide("one two\nthree four");
    const struct {
        DWORD Width;
        const char* Template;
        const char* Expected;
    } rows[] = {
        {9, "1234 6789", "1234 6789"},
        {8, "1234 6789", "1234\r\n6789"},
        {1, "a b", "a\r\nb"},
        {4, "longer than it", "longer\r\nthan\r\nit"},
        {4, "     longer", "longer"},
        {8, "1 \t 3   89%n   8 0", "1 \t 3\r\n89\r\n   8 0"},
        {4, "1234   ", "1234"},
        {5, "123    %nab\r\n", "123  \r\nab "},
        {8, "a %1 b", "a one\r\ntwo\nthree\r\nfour b"},
        {254, "%1%n", "one two\nthree four\r\n"},
        {4, "", ""},
        {4, "a%", nullptr},
        {4, "a%1!*", nullptr},
    };
    for (const auto& row : rows) {
        DWORD_PTR values[] = {reinterpret_cast<DWORD_PTR>(words.c_str())};
        const Expanded expected =
            row.Expected != nullptr ? Expanded{row.Expected} : Expanded{"", ERROR_INVALID_PARAMETER};
        EXPECT_EQ(expected, Expand(FromArray | row.Width, row.Template, 64, reinterpret_cast<va_list*>(values)))
            << row.Width << row.Template;
    }
    for (const DWORD size : {10U, 11U})
        EXPECT_EQ(size == 11 ? Expanded{"1234\r\n6789"} : (Expanded{"", ERROR_INSUFFICIENT_BUFFER}),
                  Expand(FORMAT_MESSAGE_FROM_STRING | 8, "1234 6789", size, nullptr));
}

TEST(MessagesOnLinux, AllocatedTextsHaveALimit)
{
    const auto units = [](const char* text, DWORD size) {
        LPWSTR allocated = nullptr;
        DWORD_PTR values[] = {65'536, 7};
        SetLastError(ERROR_SUCCESS);
        const DWORD count =
            FormatMessageW(FromArray | FORMAT_MESSAGE_ALLOCATE_BUFFER, Wide(text).c_str(), 0, 0,
                           reinterpret_cast<LPWSTR>(&allocated), size, reinterpret_cast<va_list*>(values));
        EXPECT_EQ(allocated != nullptr, count != 0);
        LocalFree(allocated);
        return count;
    };
    EXPECT_EQ(units("%1!*d!", 0), 65'536U);
    EXPECT_EQ(units("%1!*d!%n", 0), 0U);
    EXPECT_EQ(GetLastError(), ERROR_MORE_DATA);
    // On 32 bits this many units have more bytes than a size can count.
    if (sizeof(void*) == 4) {
        EXPECT_EQ(units("a", 0x80000001), 0U);
        EXPECT_EQ(GetLastError(), ERROR_OUTOFMEMORY);
    }
}

TEST(MessagesOnLinux, CallersArgumentListIsNotAdvanced)
{
    const auto twice = [](const char* text, ...) {
        va_list arguments;
        va_start(arguments, text);
        const Expanded first = Expand(FORMAT_MESSAGE_FROM_STRING, text, 64, &arguments);
        const int next = va_arg(arguments, int);
        va_end(arguments);
        EXPECT_EQ((Expanded{"7"}), first);
        EXPECT_EQ(7, next);
    };
    twice("%1!d!", 7);
}

TEST(MessagesOnLinux, BadTemplatesFail)
{
    const std::string longest = "%1!" + std::string(30, '0') + "d!";
    EXPECT_EQ((Expanded{"5"}), ExpandArray(longest, {5}));
    const std::string rows[] = {"x%1!s", "x%1!", "x%1!!", "x%1!" + std::string(31, '0') + "d!", "x%1!***d!"};
    for (const std::string& row : rows)
        EXPECT_EQ((Expanded{"", ERROR_INVALID_PARAMETER}), ExpandArray(row, {1, 1, 1, 1})) << row;

    EXPECT_EQ((Expanded{"", ERROR_INVALID_PARAMETER}), Expand(FORMAT_MESSAGE_FROM_STRING, "x%1", 64, nullptr));
    EXPECT_EQ((Expanded{"", ERROR_INVALID_PARAMETER}), Expand(FromArray, "x%1", 64, nullptr));
    for (const int flags : {0, 0x100, 0x200, 0xC00, 0x1400, 0x9000})
        EXPECT_EQ((Expanded{"", ERROR_INVALID_PARAMETER}), Expand(static_cast<DWORD>(flags), "x", 64, nullptr))
            << flags;
    unsigned short buffer[4];
    EXPECT_EQ(0U, FormatMessageW(FORMAT_MESSAGE_FROM_STRING, nullptr, 0, 0, platform::Wide(buffer), 4, nullptr));
    EXPECT_EQ(0U, FormatMessageW(FORMAT_MESSAGE_FROM_STRING, buffer, 0, 0, nullptr, 4, nullptr));
}

}  // namespace
