// Contract of message templates: escapes, inserts and their conversions, and the size of the buffer.
#include "expand.h"
#include "testkit/text.h"

namespace {

using contract::Expand;
using contract::ExpandArray;
using contract::Expanded;
using testkit::Wide;

DWORD_PTR Word(const utility::wstring& text)
{
    return reinterpret_cast<DWORD_PTR>(text.c_str());
}

Expanded ExpandList(DWORD flags, const char* text, ...)
{
    va_list arguments;
    va_start(arguments, text);
    Expanded expanded = Expand(flags, text, 256, &arguments);
    va_end(arguments);
    return expanded;
}

TEST(Messages, EscapesNeedNoInserts)
{
    const struct {
        const char* Template;
        const char* Expected;
    } rows[] = {{"plain", "plain"}, {"a%%b", "a%b"},  {"a%.%!% b", "a.! b"},
                {"a%nb", "a\r\nb"}, {"a%rb", "a\rb"}, {"a\nb\r\nc\rd", "a\r\nb\r\nc\r\nd"},
                {"a%0b", "a"},      {"a%qb", "aqb"},  {"!!", "!!"},
                {"a%tb", "a\tb"},   {"%% ", "% "},    {"x% ", "x "}};
    for (const auto& row : rows)
        EXPECT_EQ((Expanded{row.Expected}), Expand(FORMAT_MESSAGE_FROM_STRING, row.Template, 64, nullptr))
            << row.Template;
    for (const char* const lone : {"%", "100%", "%%%"}) {
        for (const DWORD flags : {DWORD{0}, DWORD{FORMAT_MESSAGE_IGNORE_INSERTS}})
            EXPECT_EQ((Expanded{"", ERROR_INVALID_PARAMETER}),
                      Expand(FORMAT_MESSAGE_FROM_STRING | flags, lone, 64, nullptr))
                << lone;
    }
    EXPECT_EQ((Expanded{"%1 %12!d! "}),
              Expand(FORMAT_MESSAGE_FROM_STRING | FORMAT_MESSAGE_IGNORE_INSERTS, "%1 %12!d! ", 64, nullptr));
}

TEST(Messages, WidthOfLines)
{
    const struct {
        DWORD Width;
        const char* Template;
        const char* Expected;
    } rows[] = {
        {0xFF, "a\r\nb\nc%nd", "a b c\r\nd"},
        {20, "The quick brown fox\r\njumps over\nthe lazy%ndog  and  more",
         "The quick brown fox\r\njumps over the lazy\r\ndog  and  more"},
        {20, "12345 12345 1234567890 1", "12345 12345\r\n1234567890 1"},
        {10, "  lead trail  ", "  lead\r\ntrail  "},
        {20, "a%n b%n%nc", "a\r\n b\r\n\r\nc"},
    };
    for (const auto& row : rows)
        EXPECT_EQ((Expanded{row.Expected}), Expand(FORMAT_MESSAGE_FROM_STRING | row.Width, row.Template, 128, nullptr))
            << row.Template;
    const std::string line = std::string(200, 'a') + ' ' + std::string(100, 'b');
    EXPECT_EQ((Expanded{line}), Expand(FORMAT_MESSAGE_FROM_STRING | 0xFF, line, 512, nullptr)) << "not a width of 255";
}

TEST(Messages, Inserts)
{
    const utility::wstring bill = Wide("Bill");
    const utility::wstring bob = Wide("Bob");
    const struct {
        const char* Template;
        std::vector<DWORD_PTR> Values;
        const char* Expected;
    } rows[] = {
        {"%1 [0x%2!X!: %3 - %4]", {Word(bill), 0x80070005, Word(bob), Word(bill)}, "Bill [0x80070005: Bob - Bill]"},
        {"%1!*.*s! %4 %5!*s!", {4, 2, Word(bill), Word(bob), 6, Word(bill)}, "  Bi Bob   Bill"},
        {"%2%1", {Word(bill), Word(bob)}, "BobBill"},
        {"%1%1", {Word(bill)}, "BillBill"},
        {"%10", {0, 0, 0, 0, 0, 0, 0, 0, 0, Word(bob)}, "Bob"},
        {"%101", {0, 0, 0, 0, 0, 0, 0, 0, 0, Word(bob)}, "Bob1"},
        {"%1!s!!", {Word(bob)}, "Bob!"},
        {"%1%!", {Word(bob)}, "Bob!"},
        {"%1!5d!|%1!-5d!|%1!05d!|%1!#x!", {42}, "   42|42   |00042|0x2a"},
        {"%1!c!%1!u!", {65}, "A65"},
        {"%1!S!", {reinterpret_cast<DWORD_PTR>("narrow")}, "narrow"},
        {"%1", {0}, "(null)"},
        {"%1!f!", {42}, "f"},
        {"%1!d%d!", {1}, "10"},
        {"%1!*.*u!,%1!*.*u!", {5, 3, 1, 4, 2}, "  001, 0002"},
        {"%1!*.*u!,%4!*.*u!", {5, 3, 1, 7, 2, 6}, "  001,     06"},
        {"%1!*u!,%2!*u!,%3!u!", {5, 3, 1}, "    3,  1,1"},
        {"%3!u!,%1!*u!", {5, 3, 1, 4}, "1,    4"},
        {"%1!.*u!,%1!.*u!", {3, 7, 4}, "007,004"},
    };
    for (const auto& row : rows)
        EXPECT_EQ((Expanded{row.Expected}), ExpandArray(row.Template, row.Values)) << row.Template;

    const utility::wstring marks = Wide("%2\n%n");
    EXPECT_EQ((Expanded{"%2\n%n"}), ExpandArray("%1", {Word(marks)}));
    EXPECT_EQ((Expanded{"Bill 7 Bob 2A"}),
              ExpandList(FORMAT_MESSAGE_FROM_STRING, "%1 %2!d! %3 %4!X!", bill.c_str(), 7, bob.c_str(), 42));
    EXPECT_EQ((Expanded{"42 Bob"}), ExpandList(FORMAT_MESSAGE_FROM_STRING, "%2!d! %1", bob.c_str(), 42));
    // In a list, a value whose width or precision is a star has no number.
    EXPECT_EQ((Expanded{"  Bi Bob   Bill Bob"}), ExpandList(FORMAT_MESSAGE_FROM_STRING, "%1!*.*s! %3 %4!*s! %3", 4, 2,
                                                            bill.c_str(), bob.c_str(), 6, bill.c_str()));
    EXPECT_EQ((Expanded{"  001, 0002 7"}),
              ExpandList(FORMAT_MESSAGE_FROM_STRING, "%1!*.*u!,%1!*.*u! %4!u!", 5, 3, 1, 4, 2, 7));

    std::vector<DWORD_PTR> all(101, 0);
    all[98] = 3;
    all[99] = 2;
    all[100] = Word(bob);
    EXPECT_EQ((Expanded{" Bo"}), ExpandArray("%99!*.*s!", all));
}

TEST(Messages, OutputThatDoesNotFitIsNotDelivered)
{
    const utility::wstring text = Wide("1234");
    for (DWORD size = 1; size < 8; ++size) {
        const Expanded expected = size > 5 ? Expanded{"a1234"} : Expanded{"", ERROR_INSUFFICIENT_BUFFER};
        EXPECT_EQ(expected, ExpandArray("a%1", {Word(text)}, size)) << size;
        EXPECT_EQ(expected, Expand(FORMAT_MESSAGE_FROM_STRING, "a1234", size, nullptr)) << size;
    }
}

TEST(Messages, UnusableBuffersAreRefused)
{
    unsigned short room[4];
    const struct {
        unsigned short* Buffer;
        DWORD Flags;
        DWORD Size;
        DWORD Error;
    } rows[] = {{nullptr, 0, 4, ERROR_INVALID_PARAMETER},
                {nullptr, 0, 0, ERROR_INVALID_PARAMETER},
                {nullptr, FORMAT_MESSAGE_ALLOCATE_BUFFER, 0, ERROR_INVALID_PARAMETER},
                {room, 0, 0, ERROR_INSUFFICIENT_BUFFER}};
    for (const auto& row : rows) {
        for (const DWORD source : {DWORD{FORMAT_MESSAGE_FROM_STRING}, DWORD{FORMAT_MESSAGE_FROM_SYSTEM}}) {
            SetLastError(ERROR_SUCCESS);
            EXPECT_EQ(0U, FormatMessageW(source | row.Flags, platform::Wide(Wide("a").c_str()), 5, 0,
                                         platform::Wide(row.Buffer), row.Size, nullptr));
            EXPECT_EQ(row.Error, GetLastError()) << row.Flags << ' ' << row.Size << ' ' << source;
        }
    }
}

}  // namespace
