// Contract of counted formatting: the output of each conversion, and the end of the output.
#include "system.h"
#include "testkit/text.h"

#include <climits>
#include <cmath>
#include <cstring>
#include <gtest/gtest.h>
#include <limits>
#include <vector>

namespace {

using testkit::Narrow;
using testkit::Wide;

constexpr unsigned short Guard = 0xBEEF;

struct Printed {
    std::string Text;
    int Result;
    bool operator==(const Printed&) const = default;
};

std::ostream& operator<<(std::ostream& out, const Printed& printed)
{
    return out << '"' << printed.Text << "\" -> " << printed.Result;
}

/// Formats into `count` units. Shows all units that were written, also after the buffer, and a terminator as '~'.
Printed Counted(std::size_t count, const char* format, ...)
{
    std::vector<unsigned short> buffer(count + 8, Guard);
    va_list arguments;
    va_start(arguments, format);
    const int result =
        _vsnwprintf(platform::Wide(buffer.data()), count, platform::Wide(Wide(format).c_str()), arguments);
    va_end(arguments);
    std::string text;
    for (std::size_t i = 0; i < buffer.size() && buffer[i] != Guard; ++i)
        text += buffer[i] == 0 ? '~' : static_cast<char>(buffer[i]);
    return {text, result};
}

std::string Print(const char* format, ...)
{
    unsigned short buffer[512];
    va_list arguments;
    va_start(arguments, format);
    const int result = _vsnwprintf(platform::Wide(buffer), 512, platform::Wide(Wide(format).c_str()), arguments);
    va_end(arguments);
    return result < 0 ? "too long" : Narrow({buffer, static_cast<std::size_t>(result)});
}

TEST(TextFormat, Integers)
{
    const struct {
        int Value;
        const char* Format;  // every conversion prints the value
        const char* Expected;
    } rows[] = {
        {0, "%d|%#o|%#x|%.0d|%.d|%3.0d", "0|0|0|||   "},
        {INT_MIN, "%d", "-2147483648"},
        {-1, "%i|%u|%hu|%hhu|%lu", "-1|4294967295|65535|65535|4294967295"},
        {8, "%o|%#o|%#.3o|%#08o", "10|010|010|00000010"},
        {0xBEEF, "%x|%X|%#x|%#X|%#08x|%0lX", "beef|BEEF|0xbeef|0XBEEF|0x00beef|BEEF"},
        {-42, "%5d|%-5d|%05d|%-05d|%.4d", "  -42|-42  |-0042|-42  |-0042"},
        {42, "%+d|% d|%+ d|%+u|%8.4d", "+42| 42|+42|42|    0042"},
        {0x12345, "%hd|%hhd", "9029|9029"},
        {0xFFFF, "%hd", "-1"},
        {-5, "%ld|%I32d", "-5|-5"},
    };
    for (const auto& row : rows) {
        const int value = row.Value;
        EXPECT_EQ(row.Expected, Print(row.Format, value, value, value, value, value, value)) << row.Format;
    }
}

TEST(TextFormat, SizePrefixesTakeWholeArguments)
{
    const long long wide = -0x123456789A;
    EXPECT_EQ("-78187493530 7", Print("%I64d %d", wide, 7));
    EXPECT_EQ("-78187493530 7", Print("%lld %d", wide, 7));
    EXPECT_EQ("9223372036854775808 7", Print("%llu %d", 1ULL << 63, 7));
    EXPECT_EQ("-9223372036854775808 7", Print("%lld %d", LLONG_MIN, 7));
    EXPECT_EQ("1777777777777777777777 7", Print("%llo %d", ~0ULL, 7));
    EXPECT_EQ("-2 fe 7", Print("%Id %Ix %d", std::intptr_t{-2}, std::size_t{0xFE}, 7));
    EXPECT_EQ("18 7", Print("%zu %d", std::size_t{18}, 7));
    const std::string zeros(2 * sizeof(void*) - 3, '0');
    EXPECT_EQ(zeros + "ABC 7", Print("%p %d", reinterpret_cast<void*>(0xABC), 7));
    EXPECT_EQ("  " + zeros + "ABC|",
              Print("%*p|", static_cast<int>(2 * sizeof(void*) + 2), reinterpret_cast<void*>(0xABC)));
    EXPECT_EQ("  0X" + zeros + "ABC|" + zeros + "000",
              Print("%#0*p|%#p", static_cast<int>(2 * sizeof(void*) + 4), reinterpret_cast<void*>(0xABC), nullptr));
}

TEST(TextFormat, FloatingPoint)
{
    const double infinity = std::numeric_limits<double>::infinity();
    const double quiet = std::numeric_limits<double>::quiet_NaN();
    const struct {
        double Value;
        const char* Format;  // every conversion prints the value
        const char* Expected;
    } rows[] = {
        {1.5, "%f", "1.500000"},
        {-0.0, "%f", "-0.000000"},
        {0.0, "%g|%.0e", "0|0e+000"},
        {0.5, "%.0f", "1"},
        {2.5, "%.0f|%#.0f", "3|3."},
        {99.5, "%.0f", "100"},
        {0.15, "%.1f", "0.1"},
        {0.25, "%.1f", "0.3"},
        {0.125, "%.2f|%.2g", "0.13|0.13"},
        {9.5, "%.0e", "1e+001"},
        {25.0, "%.0e", "3e+001"},
        {12500.0, "%.1e", "1.3e+004"},
        {5.0, "%#.0e", "5.e+000"},
        {-3.14159, "%010.2f", "-000003.14"},
        {2.0, "%-8.1f|", "2.0     |"},
        {1500.0, "%e", "1.500000e+003"},
        {1.5e-7, "%E", "1.500000E-007"},
        {1e300, "%.2e", "1.00e+300"},
        {100000.0, "%g", "100000"},
        {1000000.0, "%g", "1e+006"},
        {0.0001, "%g", "0.0001"},
        {0.00001, "%g|%G", "1e-005|1E-005"},
        {1.0, "%#g|%.20f", "1.00000|1.00000000000000000000"},
        {999.6, "%.3g", "1e+003"},
        {12.0, "%.0g", "1e+001"},
        {0.1, "%.17g", "0.10000000000000001"},
        {infinity, "%f|%g|%10.4f|%.0f", "1.#INF00|1.#INF|    1.#INF|1"},
        {-infinity, "%e", "-1.#INF00e+000"},
        {quiet, "%f", "1.#QNAN0"},
        {-quiet, "%f", "-1.#IND00"},
        // What does not fit into the precision is rounded; each letter rounds up.
        {infinity, "%.1f|%.2f|%.3f|%.4f", "1.$|1.#J|1.#IO|1.#INF"},
        {-infinity, "%8.2f|%.2e|%.2g|%.1g", "   -1.#J|-1.#Je+000|-1.$|-1"},
        {quiet, "%.2f|%.3f|%.4f|%.3g", "1.#R|1.#QO|1.#QNB|1.#R"},
        {-quiet, "%.2f|%.3f|%.4f", "-1.#J|-1.#IO|-1.#IND"},
    };
    for (const auto& row : rows)
        EXPECT_EQ(row.Expected, Print(row.Format, row.Value, row.Value, row.Value, row.Value)) << row.Value;
    EXPECT_EQ(std::string(309, '9').size(), Print("%.0f", std::numeric_limits<double>::max()).size());
}

TEST(TextFormat, TextsAndCharacters)
{
    const utility::wstring wide = Wide("wide");
    const struct {
        const char* Format;
        const void* Text;
        const char* Expected;
    } rows[] = {
        {"%s", wide.c_str(), "wide"},       {"%ls", wide.c_str(), "wide"},    {"%ws", wide.c_str(), "wide"},
        {"%lS", wide.c_str(), "wide"},      {"%wS", wide.c_str(), "wide"},    {"%S", "narrow", "narrow"},
        {"%hs", "narrow", "narrow"},        {"%hS", "narrow", "narrow"},      {"%6s|", wide.c_str(), "  wide|"},
        {"%-6s|", wide.c_str(), "wide  |"}, {"%06s", wide.c_str(), "00wide"}, {"%2s", wide.c_str(), "wide"},
        {"%.2s", wide.c_str(), "wi"},       {"%5.2s", wide.c_str(), "   wi"}, {"%.0s|", wide.c_str(), "|"},
        {"%-5.2S|", "narrow", "na   |"},    {"%8S", "narrow", "  narrow"},    {"%s", nullptr, "(null)"},
        {"%S", nullptr, "(null)"},          {"%.3s", nullptr, "(nu"},         {"%8s", nullptr, "  (null)"},
    };
    for (const auto& row : rows)
        EXPECT_EQ(row.Expected, Print(row.Format, row.Text)) << row.Format;
    EXPECT_EQ("A B C D E", Print("%c %C %hc %lc %hC", 'A', 'B', 'C', 'D', 'E'));
    EXPECT_EQ("  A|B  |", Print("%3c|%-3c|", 'A', 'B'));
    EXPECT_EQ((Printed{"a~b~", 3}), Counted(8, "a%cb", 0));
}

TEST(TextFormat, StarsAndTheirSigns)
{
    EXPECT_EQ("   42", Print("%*d", 5, 42));
    EXPECT_EQ("42   |", Print("%*d|", -5, 42));
    // Digits after a star continue its number.
    EXPECT_EQ(std::string(29, ' ') + "42|", Print("%*1d|", 3, 42));
    EXPECT_EQ("42" + std::string(28, ' ') + "|", Print("%-*0d|", 3, 42));
    EXPECT_EQ("0042", Print("%.*d", 4, 42));
    EXPECT_EQ("42", Print("%.*d", -4, 42));
    EXPECT_EQ("   wi|", Print("%*.*s|", 5, 2, Wide("wide").c_str()));
    EXPECT_EQ("wide", Print("%.*s", INT_MIN, Wide("wide").c_str()));
    EXPECT_EQ("wi", Print("%.*s", 2, Wide("wide").c_str()));
    EXPECT_EQ("wide", Print("%.*s", INT_MAX, Wide("wide").c_str()));
}

TEST(TextFormat, OtherTextIsPrintedAsItIs)
{
    const struct {
        const char* Format;
        const char* Expected;
    } rows[] = {{"%%", "%"},  {"100%", "100"}, {"%", ""},    {"%-08.3", ""},  {"%l", ""},      {"%y7", "y7"},
                {"%ly", "y"}, {"%!", "!"},     {"%I64", ""}, {"%-5k|", "k|"}, {"a%%b", "a%b"}, {"%.y", "y"}};
    for (const auto& row : rows)
        EXPECT_EQ(row.Expected, Print(row.Format)) << row.Format;
    // An unknown conversion takes no argument.
    EXPECT_EQ("y42", Print("%y%d", 42));
}

TEST(TextFormat, CountedOutput)
{
    const struct {
        std::size_t Count;
        Printed Expected;
    } rows[] = {{0, {"", -1}}, {1, {"a", -1}}, {5, {"ab 12", -1}}, {6, {"ab 123", 6}}, {7, {"ab 123~", 6}}};
    for (const auto& row : rows)
        EXPECT_EQ(row.Expected, Counted(row.Count, "%s %d", Wide("ab").c_str(), 123)) << row.Count;
    EXPECT_EQ((Printed{"", 0}), Counted(0, "%s", Wide("").c_str()));
    EXPECT_EQ((Printed{"~", 0}), Counted(1, ""));
    EXPECT_EQ((Printed{"abc", -1}), Counted(3, "abcd"));
    EXPECT_EQ((Printed{"ab1", -1}), Counted(3, "ab%d", 12));
    EXPECT_EQ((Printed{"  1", -1}), Counted(3, "%4d", 12));
}

}  // namespace
