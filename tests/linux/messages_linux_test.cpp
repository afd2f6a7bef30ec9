// Message templates on Linux: failures, and the caller's argument list.
#include "contract/expand.h"

namespace {

using contract::Expanded;
using contract::FromArray;

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
    EXPECT_EQ((Expanded{"end"}), Expand(FORMAT_MESSAGE_FROM_STRING, "end%", 64, nullptr));
    EXPECT_EQ((Expanded{"%1 %"}),
              Expand(FORMAT_MESSAGE_FROM_STRING | FORMAT_MESSAGE_IGNORE_INSERTS, "%1 %%", 64, nullptr));
    EXPECT_EQ((Expanded{"", ERROR_INSUFFICIENT_BUFFER}), ExpandArray("%1!2147483647d!", {1}));
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
