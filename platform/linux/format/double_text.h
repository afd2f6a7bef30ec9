// Floating-point numbers as decimal text, in the form of the Windows C runtime and independent of the locale.
#pragma once

#include <charconv>
#include <cstdint>
#include <string_view>

namespace layer {

/// A rendered number in three parts: the mantissa, the zeros after it, and the exponent of three digits. The zeros are
/// those that a large precision demands after the last digit that a `double` can have; they are counted, not stored.
class DoubleText {
public:
    /// Renders a number; the accessors then return its parts.
    /// @param value     not negative, or NaN
    /// @param kind      the conversion: `e`, `f` or `g`
    /// @param precision 0 or more
    /// @param alternate whether to write the point without decimals too, and keep the trailing zeros of `g`
    /// @param upper     whether the exponent begins with a capital letter
    void Render(double value, char kind, int precision, bool alternate, bool upper);

    /// The digits with their point. Valid until the next call of Render, like the exponent.
    std::string_view mantissa() const { return {Text, Length}; }
    /// The number of zeros between mantissa and exponent.
    std::uint64_t trailingZeros() const { return Zeros; }
    /// The exponent with its letter and sign, or an empty text.
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

    // A `double` has at most 309 digits before its point and 1074 after it; all further ones are zeros.
    static constexpr int MaxDecimals = 1074;

    char Text[309 + 1 + MaxDecimals + 16];
    std::size_t Length = 0;
    std::uint64_t Zeros = 0;
    char Exponent[8];
    std::size_t ExponentLength = 0;
};

}  // namespace layer
