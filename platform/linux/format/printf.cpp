// Formats in one pass: runs of literal text are copied; each conversion directive is parsed and written with its
// argument. Padding is counted and never built in memory, so a huge width or precision costs no more than the units
// that fit. Nothing depends on the locale of the process.
#include "format/printf.h"

#include "format/double_text.h"
#include "region/active_code_page.h"

#include <climits>
#include <cmath>

namespace {

using layer::FormatArguments;
using layer::UnitWriter;

constexpr std::size_t Unbounded = std::numeric_limits<std::size_t>::max();

/// The length modifiers, by their effect: `h`, `l` and `w`, `ll` and `I64`, `I` (the size of a pointer), `L`.
enum class LengthModifier { none, half, wide, int64, word, longDouble };

/// A parsed conversion directive, without its conversion character.
struct ConversionSpec {
    bool LeftAligned = false;  // flag `-`
    bool ForceSign = false;    // flag `+`
    bool BlankSign = false;    // flag ` `
    bool Alternate = false;    // flag `#`
    bool ZeroFilled = false;   // flag `0`
    std::uint32_t Width = 0;
    int Precision = -1;  // -1 if there is none
    LengthModifier Length = LengthModifier::none;
};

/// The parts of a formatted number, in their order. The zeros are counted, not stored.
struct Numeral {
    std::string_view Prefix;
    std::uint64_t LeadingZeros = 0;
    std::string_view Digits;
    std::uint64_t TrailingZeros = 0;
    std::string_view Suffix;
};

bool IsDigit(WCHAR unit)
{
    return unit >= '0' && unit <= '9';
}

/// Parses a number and moves `at` to the unit after it. Numbers above INT_MAX count as INT_MAX.
/// @param number  the value of the digits before
std::uint32_t ParseNumber(const WCHAR*& at, std::uint32_t number = 0)
{
    for (; IsDigit(*at); ++at) {
        const auto digit = static_cast<std::uint32_t>(*at - '0');
        number = number > (INT_MAX - digit) / 10 ? INT_MAX : number * 10 + digit;
    }
    return number;
}

// Each of these functions parses one part of a conversion directive, which may be missing, and returns the position
// after it.

const WCHAR* ParseFlags(const WCHAR* at, ConversionSpec& spec)
{
    for (;; ++at) {
        switch (*at) {
            case '-': spec.LeftAligned = true; break;
            case '+': spec.ForceSign = true; break;
            case ' ': spec.BlankSign = true; break;
            case '#': spec.Alternate = true; break;
            case '0': spec.ZeroFilled = true; break;
            default: return at;
        }
    }
}

const WCHAR* ParseWidth(const WCHAR* at, ConversionSpec& spec, FormatArguments& arguments)
{
    if (*at != '*') {
        spec.Width = ParseNumber(at);
        return at;
    }
    const int width = arguments.NextInt();
    if (width < 0)  // C defines this as the flag `-` and the absolute value
        spec.LeftAligned = true;
    spec.Width = width < 0 ? 0U - static_cast<std::uint32_t>(width) : static_cast<std::uint32_t>(width);
    ++at;
    // Digits after the star continue the number, as in the Windows C runtime.
    spec.Width = ParseNumber(at, spec.Width);
    return at;
}

const WCHAR* ParsePrecision(const WCHAR* at, ConversionSpec& spec, FormatArguments& arguments)
{
    if (*at != '.')
        return at;
    ++at;
    if (*at != '*') {
        spec.Precision = static_cast<int>(ParseNumber(at));
        return at;
    }
    spec.Precision = std::max(arguments.NextInt(), -1);  // any negative number means none
    return at + 1;
}

const WCHAR* ParseLength(const WCHAR* at, ConversionSpec& spec)
{
    const auto take = [&](LengthModifier modifier, int units) {
        spec.Length = modifier;
        return at + units;
    };
    switch (*at) {
        case 'h': return take(LengthModifier::half, at[1] == 'h' ? 2 : 1);
        case 'l': return at[1] == 'l' ? take(LengthModifier::int64, 2) : take(LengthModifier::wide, 1);
        case 'w': return take(LengthModifier::wide, 1);
        case 'L': return take(LengthModifier::longDouble, 1);
        case 'j': return take(LengthModifier::int64, 1);
        case 'z':
        case 't': return take(LengthModifier::word, 1);
        case 'I':
            if (at[1] == '6' && at[2] == '4')
                return take(LengthModifier::int64, 3);
            if (at[1] == '3' && at[2] == '2')
                return take(LengthModifier::none, 3);
            return take(LengthModifier::word, 1);
        default: return at;
    }
}

/// The padding that fills the field beside a text of `length` units.
std::uint64_t Padding(const ConversionSpec& spec, std::uint64_t length)
{
    return spec.Width > length ? spec.Width - length : 0;
}

/// Writes a number in its field. @param zeroFilled pad with zeros after the prefix instead of blanks before it
void PutNumeral(UnitWriter& out, const ConversionSpec& spec, const Numeral& numeral, bool zeroFilled)
{
    const std::uint64_t padding = Padding(spec, numeral.Prefix.size() + numeral.LeadingZeros + numeral.Digits.size() +
                                                    numeral.TrailingZeros + numeral.Suffix.size());
    if (!spec.LeftAligned && !zeroFilled)
        out.Fill(' ', padding);
    out.Put(numeral.Prefix);
    out.Fill('0', numeral.LeadingZeros + (!spec.LeftAligned && zeroFilled ? padding : 0));
    out.Put(numeral.Digits);
    out.Fill('0', numeral.TrailingZeros);
    out.Put(numeral.Suffix);
    if (spec.LeftAligned)
        out.Fill(' ', padding);
}

/// The sign that the flags demand.
std::string_view Sign(const ConversionSpec& spec, bool negative)
{
    if (negative)
        return "-";
    if (spec.ForceSign)
        return "+";
    return spec.BlankSign ? " " : "";
}

// A `short` is passed as an `int` by C, so it is read as one and cut to 16 bits.

std::int64_t NextSigned(FormatArguments& arguments, LengthModifier modifier)
{
    switch (modifier) {
        case LengthModifier::int64: return static_cast<std::int64_t>(arguments.NextLong());
        case LengthModifier::word: return static_cast<std::intptr_t>(arguments.NextWord());
        case LengthModifier::half: return static_cast<std::int16_t>(arguments.NextInt());
        default: return arguments.NextInt();
    }
}

std::uint64_t NextUnsigned(FormatArguments& arguments, LengthModifier modifier)
{
    switch (modifier) {
        case LengthModifier::int64: return arguments.NextLong();
        case LengthModifier::word: return arguments.NextWord();
        case LengthModifier::half: return static_cast<std::uint16_t>(arguments.NextInt());
        default: return static_cast<std::uint32_t>(arguments.NextInt());
    }
}

constexpr std::size_t MaxDigits = 22;  // 64 bits in octal
using Digits = char[MaxDigits];

// The digits are produced from the last one, at the end of the buffer.
template <class Value>
std::string_view WriteDigits(Digits& digits, Value value, Value base, const char* alphabet)
{
    std::size_t first = MaxDigits;
    for (; value != 0; value /= base)
        digits[--first] = alphabet[value % base];
    return {digits + first, MaxDigits - first};
}

/// Writes the digits of `value`. @return the part of `digits` that was used; empty for zero
std::string_view WriteDigits(Digits& digits, std::uint64_t value, std::uint32_t base, bool upper)
{
    const char* const alphabet = upper ? "0123456789ABCDEF" : "0123456789abcdef";
    // A 32-bit division is much faster than one of 64 bits, and one by a constant is faster still. Most numbers are
    // small and decimal.
    if (value <= 0xFFFFFFFF)
        return base == 10 ? WriteDigits(digits, static_cast<std::uint32_t>(value), 10U, alphabet)
                          : WriteDigits(digits, static_cast<std::uint32_t>(value), base, alphabet);
    return WriteDigits(digits, value, std::uint64_t{base}, alphabet);
}

/// The zeros before the digits of an integer. The precision is the smallest number of digits; its default is one.
std::size_t LeadingZeros(const ConversionSpec& spec, std::string_view digits)
{
    const std::size_t minimum = spec.Precision < 0 ? 1 : static_cast<std::size_t>(spec.Precision);
    return minimum > digits.size() ? minimum - digits.size() : 0;
}

void PutInteger(UnitWriter& out, const ConversionSpec& spec, std::string_view prefix, std::string_view digits)
{
    const std::size_t zeros = LeadingZeros(spec, digits);
    // Most numbers are nothing but their digits. Writing the empty parts too takes twice the instructions.
    if (spec.Width == 0 && zeros == 0 && prefix.empty())
        return out.Put(digits);
    const Numeral numeral{.Prefix = prefix, .LeadingZeros = zeros, .Digits = digits, .TrailingZeros = 0, .Suffix = {}};
    // A precision disables the flag `0` of integers, as C demands.
    PutNumeral(out, spec, numeral, spec.ZeroFilled && spec.Precision < 0);
}

void PutSigned(UnitWriter& out, const ConversionSpec& spec, FormatArguments& arguments)
{
    const std::int64_t value = NextSigned(arguments, spec.Length);
    const bool negative = value < 0;
    const auto bits = static_cast<std::uint64_t>(value);  // unsigned, so that the smallest number can be negated
    Digits digits;
    PutInteger(out, spec, Sign(spec, negative), WriteDigits(digits, negative ? 0 - bits : bits, 10, false));
}

void PutUnsigned(UnitWriter& out, const ConversionSpec& spec, FormatArguments& arguments, WCHAR kind)
{
    const std::uint64_t value = NextUnsigned(arguments, spec.Length);
    const std::uint32_t base = kind == 'u' ? 10 : kind == 'o' ? 8 : 16;
    Digits buffer;
    const std::string_view digits = WriteDigits(buffer, value, base, kind == 'X');
    std::string_view prefix;
    if (spec.Alternate && base == 16 && value != 0)
        prefix = kind == 'X' ? "0X" : "0x";
    else if (spec.Alternate && base == 8 && LeadingZeros(spec, digits) == 0)
        prefix = "0";
    PutInteger(out, spec, prefix, digits);
}

/// Writes a pointer: always all digits, in capitals.
void PutPointer(UnitWriter& out, ConversionSpec spec, FormatArguments& arguments)
{
    spec.Precision = 2 * sizeof(void*);
    const DWORD_PTR value = arguments.NextWord();
    Digits digits;
    PutInteger(out, spec, spec.Alternate && value != 0 ? "0X" : "", WriteDigits(digits, value, 16, true));
}

void PutDouble(UnitWriter& out, const ConversionSpec& spec, FormatArguments& arguments, WCHAR kind)
{
    const double value =
        spec.Length == LengthModifier::longDouble ? arguments.NextLongDouble() : arguments.NextDouble();
    const bool upper = kind < 'a';  // in ASCII capitals come first
    const char lowerKind = static_cast<char>(upper ? kind - 'A' + 'a' : kind);
    // A value that is not a number keeps its sign, because its bits decide how it is written.
    const double magnitude = std::isnan(value) ? value : std::fabs(value);
    layer::DoubleText text;
    text.Render(magnitude, lowerKind, spec.Precision < 0 ? 6 : spec.Precision, spec.Alternate, upper);
    const Numeral numeral{.Prefix = Sign(spec, std::signbit(value)),
                          .LeadingZeros = 0,
                          .Digits = text.mantissa(),
                          .TrailingZeros = text.trailingZeros(),
                          .Suffix = text.exponent()};
    PutNumeral(out, spec, numeral, spec.ZeroFilled);
}

/// Writes a text of unknown length in its field. A text that is aligned to the right is measured first, so `put` is
/// called twice.
/// @param put writes the text to the writer that it is called with
template <class PutText>
void PutPadded(UnitWriter& out, const ConversionSpec& spec, PutText put)
{
    const std::size_t before = out.used();
    if (spec.Width > 0 && !spec.LeftAligned) {
        // Beyond the width there is no padding, so measuring stops there.
        UnitWriter measure(nullptr, spec.Width);
        put(measure);
        out.Fill(spec.ZeroFilled ? '0' : ' ', Padding(spec, measure.used()));
        put(out);
        return;
    }
    put(out);
    if (!out.overrun())
        out.Fill(' ', Padding(spec, out.used() - before));
}

/// Writes narrow text up to its terminator. @param limit the number of bytes that may be read
void PutNarrow(UnitWriter& out, const char* text, std::size_t limit)
{
    for (std::size_t i = 0; i < limit && text[i] != 0 && !out.overrun();) {
        const layer::DecodedCharacter character = layer::DecodeNarrow(text + i, limit - i);
        if (character.UnitCount == 0)
            out.Put('?');
        for (unsigned unit = 0; unit < character.UnitCount; ++unit)
            out.Put(character.Units[unit]);
        i += character.ByteCount;
    }
}

/// Whether a text or character argument is narrow. @param narrowKind whether it is narrow without a length modifier
bool IsNarrow(const ConversionSpec& spec, bool narrowKind)
{
    switch (spec.Length) {
        case LengthModifier::half: return true;
        case LengthModifier::wide:
        case LengthModifier::int64: return false;
        default: return narrowKind;
    }
}

void PutText(UnitWriter& out, const ConversionSpec& spec, FormatArguments& arguments, bool narrowKind)
{
    const DWORD_PTR argument = arguments.NextWord();
    const std::size_t limit = spec.Precision < 0 ? Unbounded : static_cast<std::size_t>(spec.Precision);
    if (argument == 0) {
        const std::string_view null = std::string_view("(null)").substr(0, limit);
        PutPadded(out, spec, [&](UnitWriter& to) { to.Put(null); });
    } else if (IsNarrow(spec, narrowKind)) {
        const auto text = reinterpret_cast<const char*>(argument);
        PutPadded(out, spec, [&](UnitWriter& to) { PutNarrow(to, text, limit); });
    } else {
        const auto text = reinterpret_cast<const WCHAR*>(argument);
        PutPadded(out, spec, [&](UnitWriter& to) { to.PutUntil(0, text, limit); });
    }
}

void PutCharacter(UnitWriter& out, const ConversionSpec& spec, FormatArguments& arguments, bool narrowKind)
{
    const int argument = arguments.NextInt();
    auto unit = static_cast<WCHAR>(argument);
    if (IsNarrow(spec, narrowKind)) {
        const char byte = static_cast<char>(argument);
        const layer::DecodedCharacter character = layer::DecodeNarrow(&byte, 1);
        unit = character.UnitCount == 1 ? character.Units[0] : WCHAR{'?'};
    }
    PutPadded(out, spec, [&](UnitWriter& to) { to.Put(unit); });
}

void PutConversion(UnitWriter& out, const ConversionSpec& spec, WCHAR kind, FormatArguments& arguments)
{
    switch (kind) {
        case 'd':
        case 'i': return PutSigned(out, spec, arguments);
        case 'u':
        case 'o':
        case 'x':
        case 'X': return PutUnsigned(out, spec, arguments, kind);
        case 'p': return PutPointer(out, spec, arguments);
        case 's':
        case 'S': return PutText(out, spec, arguments, kind == 'S');
        case 'c':
        case 'C': return PutCharacter(out, spec, arguments, kind == 'C');
        case 'e':
        case 'E':
        case 'f':
        case 'F':
        case 'g':
        case 'G':
            if (arguments.listed())
                return PutDouble(out, spec, arguments, kind);
            break;  // the other source of arguments has no floating-point numbers
        default: break;
    }
    out.Put(kind);  // an unknown conversion character is literal text
}

}  // namespace

void layer::Format(UnitWriter& out, const WCHAR* format, FormatArguments& arguments)
{
    for (;;) {
        const WCHAR* at = out.PutUntil('%', format);
        if (*at != '%' || out.overrun())
            return;
        ++at;
        ConversionSpec spec;
        at = ParseFlags(at, spec);
        at = ParseWidth(at, spec, arguments);
        at = ParsePrecision(at, spec, arguments);
        at = ParseLength(at, spec);
        if (*at == 0)
            return;
        PutConversion(out, spec, *at, arguments);
        if (out.overrun())
            return;
        format = at + 1;
    }
}

int _vsnwprintf(WCHAR* buffer, SIZE_T count, const WCHAR* format, va_list arguments)
{
    if (format == nullptr || (buffer == nullptr && count != 0))
        return -1;
    const std::size_t room = std::min<std::size_t>(count, INT_MAX);  // so that the result fits its type
    layer::UnitWriter out(buffer, room);
    layer::FormatArguments values(arguments);
    layer::Format(out, format, values);
    if (out.overrun())
        return -1;
    if (out.used() < count)
        buffer[out.used()] = 0;
    return static_cast<int>(out.used());
}

int _snwprintf(WCHAR* buffer, SIZE_T count, const WCHAR* format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    const int units = _vsnwprintf(buffer, count, format, arguments);
    va_end(arguments);
    return units;
}
