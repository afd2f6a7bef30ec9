// Floating-point numbers in decimal, the platform's way and whatever the locale.
#pragma once

#include <charconv>
#include <cstdint>
#include <string_view>

namespace layer {

/// A rendered number: the mantissa, the zeros that its precision asks for beyond the digits it has, and an
/// exponent of at least three digits.
class DoubleText {
public:
    /// @param value     not negative, except where it is no number; infinity and that have words of their own.
    /// @param kind      e, f or g.
    /// @param precision any number from 0 on.
    /// @param alternate always with a point, and with the zeros that `g` drops.
    void Render(double value, char kind, int precision, bool alternate, bool upper);

    std::string_view mantissa() const { return {Text, Length}; }
    std::uint64_t trailingZeros() const { return Zeros; }
    std::string_view exponent() const { return {Exponent, ExponentLength}; }

private:
    void RenderDigits(double value, std::chars_format form, int precision);
    int TakeExponent();
    bool RoundUp();
    void RenderFixed(double value, int precision);
    int RenderScientific(double value, int precision, bool upper);
    void RenderSpecial(double value, int precision);
    void WriteExponent(int exponent, bool upper);
    void AddPoint();
    void StripZeros();

    // A double has at most 309 digits in front of its point and 1074 behind it; all further ones are zeros.
    static constexpr int MaxDecimals = 1074;

    char Text[309 + 1 + MaxDecimals + 16];
    std::size_t Length = 0;
    std::uint64_t Zeros = 0;
    char Exponent[8];
    std::size_t ExponentLength = 0;
};

}  // namespace layer
