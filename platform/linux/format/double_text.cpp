// The digits come from `std::to_chars`, which is independent of the locale. The exponent, the texts for infinity and
// NaN, and the rounding follow the Windows C runtime: a value exactly in the middle between two results is rounded up,
// while `std::to_chars` rounds it to the even digit.
#include "format/double_text.h"

#include <algorithm>
#include <climits>
#include <cmath>
#include <cstdlib>
#include <cstring>

namespace layer {

namespace {

/// Whether this many decimals represent the value exactly. A value in the middle between two results is exact with one
/// decimal more than is written, but not without it.
/// @param value    not negative
/// @param decimals if negative, that many digits before the point are excluded too
bool IsExactAt(double value, int decimals)
{
    constexpr int exactPowers = 22;  // larger powers of ten are not exact in a `double`
    if (decimals < 0)
        return -decimals <= exactPowers && std::fmod(value, std::pow(10.0, -decimals)) == 0;
    // 1/2 to the power of n has exactly n decimals, so a value has as many decimals as binary digits after the point.
    const double shifted = std::ldexp(value, decimals);
    return std::trunc(shifted) == shifted;
}

}  // namespace

void DoubleText::Render(double value, char kind, int precision, bool alternate, bool upper)
{
    // The precision of `g` counts all digits, that of `e` those after the point.
    const bool general = kind == 'g';
    if (general)
        precision = std::clamp(precision, 1, INT_MAX - 4) - 1;  // room for the exponent -4, which is subtracted below
    if (!std::isfinite(value)) {
        RenderSpecial(value, precision);
        if (kind == 'e')
            WriteExponent(0, upper);
    } else if (kind == 'f') {
        RenderFixed(value, precision);
    } else {
        // `g` chooses by the exponent after rounding, so the number is rendered with an exponent first.
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
    const int rendered = std::min(precision, MaxDecimals);
    const char* const end = std::to_chars(Text, Text + sizeof Text, value, form, rendered).ptr;
    Length = static_cast<std::size_t>(end - Text);
    Zeros = static_cast<std::uint64_t>(precision - rendered);
}

/// Removes the exponent from the end of the text. @return its value
int DoubleText::TakeExponent()
{
    const std::size_t mark = mantissa().find('e');
    int exponent = 0;
    std::from_chars(Text + mark + 2, Text + Length, exponent);
    exponent = Text[mark + 1] == '-' ? -exponent : exponent;
    Length = mark;
    return exponent;
}

/// Removes the last digit, which is a 5, and adds one to the digit before it, with carries.
/// @return true if all digits have become zeros and the last carry is left: the number needs a 1 at its front
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

// A value in the middle is rendered with one more digit, which is exact then, and rounded here.
void DoubleText::RenderFixed(double value, int precision)
{
    if (precision < MaxDecimals && IsExactAt(value, precision + 1) && !IsExactAt(value, precision)) {
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

/// Like RenderFixed. The exponent, and with it the position of the last digit, is known only after rendering.
/// @return the exponent
int DoubleText::RenderScientific(double value, int precision, bool upper)
{
    int exponent = 0;
    if (precision < MaxDecimals) {
        RenderDigits(value, std::chars_format::scientific, precision + 1);
        exponent = TakeExponent();
    }
    if (precision < MaxDecimals && Text[Length - 1] == '5' && IsExactAt(value, precision + 1 - exponent)) {
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

/// Renders infinity and NaN like the Windows C runtime: "1." and a word, which is rounded or filled up with zeros to
/// the precision like decimals. Each letter rounds up: two decimals of "1.#INF" are "1.#J".
void DoubleText::RenderSpecial(double value, int precision)
{
    // The NaN that the processor produces for an invalid operation.
    constexpr std::uint64_t Indefinite = 0xFFF8000000000000;
    std::uint64_t bits = 0;
    std::memcpy(&bits, &value, sizeof bits);
    const std::string_view word = std::isinf(value) ? "#INF" : bits == Indefinite ? "#IND" : "#QNAN";
    const auto decimals = static_cast<std::size_t>(precision);
    Length = 0;
    Text[Length++] = '1';
    if (decimals > 0)
        Text[Length++] = '.';
    Length += word.copy(Text + Length, decimals);
    if (decimals > 0 && decimals < word.size())
        ++Text[Length - 1];
    Zeros = decimals > word.size() ? decimals - word.size() : 0;
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
