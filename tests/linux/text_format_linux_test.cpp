// Formatting on Linux: narrow text, texts without a terminator, huge numbers, and values in place of an argument list.
#include "format/printf.h"
#include "testkit/test_machine.h"
#include "testkit/text.h"

#include <climits>
#include <cstring>
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <unistd.h>

namespace {

using testkit::Narrow;
using testkit::Wide;

/// Formats into `count` units, at most 32.
utility::wstring Units(std::size_t count, const char* format, ...)
{
    unsigned short buffer[32];
    va_list arguments;
    va_start(arguments, format);
    const int result = _vsnwprintf(buffer, count, Wide(format).c_str(), arguments);
    va_end(arguments);
    return {buffer, result < 0 ? count : static_cast<std::size_t>(result)};
}

template <class... Values>
std::string Counted(std::size_t count, const char* format, Values... values)
{
    return Narrow(Units(count, format, values...));
}

TEST(TextFormatOnLinux, NarrowTextIsUtf8ByDefault)
{
    testkit::TestMachine machine;
    machine.Settings.Set("");
    EXPECT_EQ((utility::wstring{0xE4, 0xD83D, 0xDE00}), Units(8, "%S", "\xC3\xA4\xF0\x9F\x98\x80"));
    EXPECT_EQ((utility::wstring{' ', ' ', ' ', ' ', 0xE4}), Units(8, "%5S", "\xC3\xA4"));
    EXPECT_EQ("a?b", Counted(8, "%hs",
                             "a\xFF"
                             "b"));
    EXPECT_EQ("?", Counted(8, "%C", 0xE4));
}

TEST(TextFormatOnLinux, PrecisionLimitsWhatIsRead)
{
    // The text has no terminator, and ends where the readable memory ends.
    const auto page = static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
    void* const memory = mmap(nullptr, 2 * page, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    ASSERT_NE(MAP_FAILED, memory);
    char* const end = static_cast<char*>(memory) + page;
    ASSERT_EQ(0, mprotect(end, page, PROT_NONE));
    const unsigned short wide[] = {'a', 'b', 'c'};
    std::memcpy(end - sizeof wide, wide, sizeof wide);
    EXPECT_EQ("abc|  abc|abc  ",
              Counted(32, "%.3s|%5.3s|%-5.3s", end - sizeof wide, end - sizeof wide, end - sizeof wide));
    EXPECT_EQ("ab", Counted(2, "%.3s", end - sizeof wide));
    std::memcpy(end - 3, "ab\xE2", 3);
    EXPECT_EQ("ab?| ab?", Counted(32, "%.3S|%4.3S", end - 3, end - 3));
    munmap(memory, 2 * page);
}

TEST(TextFormatOnLinux, HugeWidthsAndPrecisionsTakeNoTime)
{
    const std::string blanks(10, ' ');
    const std::string zeros(10, '0');
    for (int i = 0; i < 1000; ++i) {
        ASSERT_EQ(blanks, Counted(10, "%2147483647d", 5));
        ASSERT_EQ(blanks, Counted(10, "%99999999999999999999s", Wide("a").c_str()));
        ASSERT_EQ("5         ", Counted(10, "%*d", INT_MIN, 5));
        ASSERT_EQ(blanks, Counted(10, "%*99999999d", INT_MAX, 5));
        ASSERT_EQ("5         ", Counted(10, "%*1d", INT_MIN, 5));
        ASSERT_EQ(zeros, Counted(10, "%.*d", INT_MAX, 5));
        ASSERT_EQ("1.00000000", Counted(10, "%.*f", INT_MAX, 1.0));
        ASSERT_EQ("1.00000000", Counted(10, "%#.*g", INT_MAX, 1.0));
        ASSERT_EQ("1e-005", Counted(10, "%.*g", 1, 1e-5));
    }
}

TEST(TextFormatOnLinux, ResultsThatTheContractLeavesOpen)
{
    EXPECT_EQ("0", Counted(8, "%#.0o", 0));
    EXPECT_EQ("    0042", Counted(8, "%08.4d", 42));
    EXPECT_EQ("+3.14 %", Counted(16, "%+.2F %5%", 3.14159));
    EXPECT_EQ("6d", Counted(8, "%I6d"));
    EXPECT_EQ("0.1000000000000000055511151", Counted(32, "%.25f", 0.1)) << "all digits are those of the value";
    va_list none{};
    EXPECT_EQ(-1, _vsnwprintf(nullptr, 5, Wide("a").c_str(), none));
    EXPECT_EQ("2.5 7", Counted(8, "%Lg %d", 2.5L, 7)) << "a long double has the compiler's size";
    int untouched = 5;
    EXPECT_EQ("n42", Counted(8, "%n%d", 42, &untouched)) << "nothing is written through an argument";
    EXPECT_EQ(5, untouched);
}

TEST(TextFormatOnLinux, ValuesInPlaceOfAnArgumentList)
{
    const utility::wstring text = Wide("ab");
    const DWORD_PTR values[] = {5, reinterpret_cast<DWORD_PTR>(text.c_str()), 0xFE};
    unsigned short buffer[32]{};
    layer::UnitWriter out(buffer, 31);
    layer::FormatArguments arguments(values);
    const utility::wstring format = Wide("%*s %x %f %d %s");
    layer::Format(out, format.c_str(), arguments);
    // A floating-point number takes no value. After the last value there are zeros.
    EXPECT_EQ("   ab fe f 0 (null)", Narrow({buffer, out.used()}));
}

}  // namespace
