// The digits come from the standard library's conversion, which knows no locale; the exponent and the words for
// what is no number are the platform's. So is the rounding: a number that lies in the middle goes up, where the
// standard library would take the even neighbour.
#include "format/double_text.h"

#include <algorithm>
#include <climits>
#include <cmath>
#include <cstdlib>
#include <cstring>

namespace layer {

namespace {

/// Whether a number that is not negative has no digit behind this many decimals; a negative count leaves that many
/// digits in front of the point out too.
bool EndsAt(double value, int decimals)
{
    constexpr int exactPowers = 22;
    if (decimals < 0)
        return -decimals <= exactPowers && std::fmod(value, std::pow(10.0, -decimals)) == 0;
    // A binary number has as many decimals as it has binary digits behind the point.
    const double shifted = std::ldexp(value, decimals);
    return std::trunc(shifted) == shifted;
}

}  // namespace

void DoubleText::Render(double value, char kind, int precision, bool alternate, bool upper)
{
    const bool general = kind == 'g';
    if (general)
        precision = std::clamp(precision, 1, INT_MAX - 4) - 1;  // an exponent of -4 adds to it below
    if (!std::isfinite(value)) {
        RenderSpecial(value, precision);
        if (kind == 'e')
            WriteExponent(0, upper);
    } else if (kind == 'f') {
        RenderFixed(value, precision);
    } else {
        const int exponent = RenderScientific(value, precision, upper);
        if (general && exponent >= -4 && exponent <= precision)
            RenderFixed(value, precision - exponent);
    }
    if (alternate)
        AddPoint();
    else if (general)
        StripZeros();
}

void DoubleText::RenderDigits(double value, std::chars_format form, int precision)
{
    const int kept = std::min(precision, MaxDecimals);
    const char* const end = std::to_chars(Text, Text + sizeof Text, value, form, kept).ptr;
    Length = static_cast<std::size_t>(end - Text);
    Zeros = static_cast<std::uint64_t>(precision - kept);
}

/// Takes the exponent off the end of the text.
int DoubleText::TakeExponent()
{
    const std::size_t mark = mantissa().find('e');
    int exponent = 0;
    std::from_chars(Text + mark + 2, Text + Length, exponent);
    exponent = Text[mark + 1] == '-' ? -exponent : exponent;
    Length = mark;
    return exponent;
}

/// Drops the last digit, a 5, and counts up what stands in front of it. True if only zeros remain: the number has
/// grown by a digit.
bool DoubleText::RoundUp()
{
    --Length;
    if (Text[Length - 1] == '.')
        --Length;
    for (std::size_t at = Length; at-- > 0;) {
        if (Text[at] == '.')
            continue;
        if (Text[at] != '9') {
            ++Text[at];
            return false;
        }
        Text[at] = '0';
    }
    return true;
}

void DoubleText::RenderFixed(double value, int precision)
{
    if (precision < MaxDecimals && EndsAt(value, precision + 1) && !EndsAt(value, precision)) {
        RenderDigits(value, std::chars_format::fixed, precision + 1);
        if (RoundUp()) {
            std::memmove(Text + 1, Text, Length++);
            Text[0] = '1';
        }
    } else {
        RenderDigits(value, std::chars_format::fixed, precision);
    }
    ExponentLength = 0;
}

/// @return the exponent.
int DoubleText::RenderScientific(double value, int precision, bool upper)
{
    int exponent = 0;
    if (precision < MaxDecimals) {
        RenderDigits(value, std::chars_format::scientific, precision + 1);
        exponent = TakeExponent();
    }
    if (precision < MaxDecimals && Text[Length - 1] == '5' && EndsAt(value, precision + 1 - exponent)) {
        if (RoundUp()) {
            Text[0] = '1';
            ++exponent;
        }
    } else {
        RenderDigits(value, std::chars_format::scientific, precision);
        exponent = TakeExponent();
    }
    WriteExponent(exponent, upper);
    return exponent;
}

/// Words for what is no number, cut or filled up to `precision` like digits.
void DoubleText::RenderSpecial(double value, int precision)
{
    constexpr std::uint64_t Indefinite = 0xFFF8000000000000;  // what an invalid operation gives
    std::uint64_t bits = 0;
    std::memcpy(&bits, &value, sizeof bits);
    const std::string_view word = std::isinf(value) ? "#INF" : bits == Indefinite ? "#IND" : "#QNAN";
    const auto wanted = static_cast<std::size_t>(precision);
    Length = 0;
    Text[Length++] = '1';
    if (wanted > 0)
        Text[Length++] = '.';
    Length += word.copy(Text + Length, wanted);
    Zeros = wanted > word.size() ? wanted - word.size() : 0;
    ExponentLength = 0;
}

void DoubleText::WriteExponent(int exponent, bool upper)
{
    const int magnitude = std::abs(exponent);
    ExponentLength = 0;
    Exponent[ExponentLength++] = upper ? 'E' : 'e';
    Exponent[ExponentLength++] = exponent < 0 ? '-' : '+';
    for (const int unit : {100, 10, 1})
        Exponent[ExponentLength++] = static_cast<char>('0' + magnitude / unit % 10);
}

void DoubleText::AddPoint()
{
    if (mantissa().find('.') == std::string_view::npos)
        Text[Length++] = '.';
}

void DoubleText::StripZeros()
{
    Zeros = 0;
    if (mantissa().find('.') == std::string_view::npos)
        return;
    while (Text[Length - 1] == '0')
        --Length;
    if (Text[Length - 1] == '.')
        --Length;
}

}  // namespace layer
