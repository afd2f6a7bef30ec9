// One pass over the format: runs of plain text are copied, each conversion is parsed into a picture and put
// with its argument. Fillers are counted, never built, so a huge width or precision costs nothing but the
// units that fit. Nothing depends on the process's locale.
#include "format/printf.h"

#include "format/double_text.h"
#include "region/active_code_page.h"

#include <climits>
#include <cmath>

namespace {

using layer::FormatArguments;
using layer::UnitWriter;

constexpr std::size_t Unbounded = std::numeric_limits<std::size_t>::max();

enum class Size { plain, half, wide, quad, word, longDouble };

struct Picture {
    bool Left = false;
    bool Plus = false;
    bool Blank = false;
    bool Alternate = false;
    bool Zero = false;
    std::uint32_t Width = 0;
    int Precision = -1;  // -1: none given
    Size ArgumentSize = Size::plain;
};

/// A number as it stands in its field. The zeros are counted, not stored.
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

int ParseNumber(const WCHAR*& at)
{
    int number = 0;
    for (; IsDigit(*at); ++at) {
        const int digit = *at - '0';
        number = number > (INT_MAX - digit) / 10 ? INT_MAX : number * 10 + digit;
    }
    return number;
}

const WCHAR* ParseFlags(const WCHAR* at, Picture& picture)
{
    for (;; ++at) {
        switch (*at) {
            case '-': picture.Left = true; break;
            case '+': picture.Plus = true; break;
            case ' ': picture.Blank = true; break;
            case '#': picture.Alternate = true; break;
            case '0': picture.Zero = true; break;
            default: return at;
        }
    }
}

const WCHAR* ParseWidth(const WCHAR* at, Picture& picture, FormatArguments& arguments)
{
    if (*at != '*') {
        picture.Width = static_cast<std::uint32_t>(ParseNumber(at));
        return at;
    }
    const int width = arguments.NextInt();
    if (width < 0)
        picture.Left = true;
    picture.Width = width < 0 ? 0U - static_cast<std::uint32_t>(width) : static_cast<std::uint32_t>(width);
    return at + 1;
}

const WCHAR* ParsePrecision(const WCHAR* at, Picture& picture, FormatArguments& arguments)
{
    if (*at != '.')
        return at;
    ++at;
    if (*at != '*') {
        picture.Precision = ParseNumber(at);
        return at;
    }
    picture.Precision = std::max(arguments.NextInt(), -1);
    return at + 1;
}

const WCHAR* ParseSize(const WCHAR* at, Picture& picture)
{
    const auto take = [&](Size size, int units) {
        picture.ArgumentSize = size;
        return at + units;
    };
    switch (*at) {
        case 'h': return take(Size::half, at[1] == 'h' ? 2 : 1);
        case 'l': return at[1] == 'l' ? take(Size::quad, 2) : take(Size::wide, 1);
        case 'w': return take(Size::wide, 1);
        case 'L': return take(Size::longDouble, 1);
        case 'j': return take(Size::quad, 1);
        case 'z':
        case 't': return take(Size::word, 1);
        case 'I':
            if (at[1] == '6' && at[2] == '4')
                return take(Size::quad, 3);
            if (at[1] == '3' && at[2] == '2')
                return take(Size::plain, 3);
            return take(Size::word, 1);
        default: return at;
    }
}

/// How much of the field a text of `length` leaves to fill.
std::uint64_t Padding(const Picture& picture, std::uint64_t length)
{
    return picture.Width > length ? picture.Width - length : 0;
}

void PutNumeral(UnitWriter& out, const Picture& picture, const Numeral& numeral, bool zeroFilled)
{
    const std::uint64_t padding =
        Padding(picture, numeral.Prefix.size() + numeral.LeadingZeros + numeral.Digits.size() + numeral.TrailingZeros +
                             numeral.Suffix.size());
    if (!picture.Left && !zeroFilled)
        out.Fill(' ', padding);
    out.Put(numeral.Prefix);
    out.Fill('0', numeral.LeadingZeros + (!picture.Left && zeroFilled ? padding : 0));
    out.Put(numeral.Digits);
    out.Fill('0', numeral.TrailingZeros);
    out.Put(numeral.Suffix);
    if (picture.Left)
        out.Fill(' ', padding);
}

std::string_view Sign(const Picture& picture, bool negative)
{
    if (negative)
        return "-";
    if (picture.Plus)
        return "+";
    return picture.Blank ? " " : "";
}

std::int64_t NextSigned(FormatArguments& arguments, Size size)
{
    switch (size) {
        case Size::quad: return static_cast<std::int64_t>(arguments.NextLong());
        case Size::word: return static_cast<std::intptr_t>(arguments.NextWord());
        case Size::half: return static_cast<std::int16_t>(arguments.NextInt());
        default: return arguments.NextInt();
    }
}

std::uint64_t NextUnsigned(FormatArguments& arguments, Size size)
{
    switch (size) {
        case Size::quad: return arguments.NextLong();
        case Size::word: return arguments.NextWord();
        case Size::half: return static_cast<std::uint16_t>(arguments.NextInt());
        default: return static_cast<std::uint32_t>(arguments.NextInt());
    }
}

constexpr std::size_t MaxDigits = 22;  // 64 bits in octal
using Digits = char[MaxDigits];

template <class Value>
std::string_view WriteDigits(Digits& digits, Value value, Value base, const char* alphabet)
{
    std::size_t first = MaxDigits;
    for (; value != 0; value /= base)
        digits[--first] = alphabet[value % base];
    return {digits + first, MaxDigits - first};
}

/// The digits of `value`, none for zero.
std::string_view WriteDigits(Digits& digits, std::uint64_t value, std::uint32_t base, bool upper)
{
    const char* const alphabet = upper ? "0123456789ABCDEF" : "0123456789abcdef";
    if (value <= 0xFFFFFFFF)  // 32 bits divide far faster, and with a base that is known faster still
        return base == 10 ? WriteDigits(digits, static_cast<std::uint32_t>(value), 10U, alphabet)
                          : WriteDigits(digits, static_cast<std::uint32_t>(value), base, alphabet);
    return WriteDigits(digits, value, std::uint64_t{base}, alphabet);
}

/// The zeros that a number's precision asks for; without one a number has at least one digit.
std::size_t LeadingZeros(const Picture& picture, std::string_view digits)
{
    const std::size_t wanted = picture.Precision < 0 ? 1 : static_cast<std::size_t>(picture.Precision);
    return wanted > digits.size() ? wanted - digits.size() : 0;
}

void PutInteger(UnitWriter& out, const Picture& picture, std::string_view prefix, std::string_view digits)
{
    const Numeral numeral{.Prefix = prefix,
                          .LeadingZeros = LeadingZeros(picture, digits),
                          .Digits = digits,
                          .TrailingZeros = 0,
                          .Suffix = {}};
    PutNumeral(out, picture, numeral, picture.Zero && picture.Precision < 0);
}

void PutSigned(UnitWriter& out, const Picture& picture, FormatArguments& arguments)
{
    const std::int64_t value = NextSigned(arguments, picture.ArgumentSize);
    const bool negative = value < 0;
    const auto bits = static_cast<std::uint64_t>(value);
    Digits digits;
    PutInteger(out, picture, Sign(picture, negative), WriteDigits(digits, negative ? 0 - bits : bits, 10, false));
}

void PutUnsigned(UnitWriter& out, const Picture& picture, FormatArguments& arguments, WCHAR kind)
{
    const std::uint64_t value = NextUnsigned(arguments, picture.ArgumentSize);
    const std::uint32_t base = kind == 'u' ? 10 : kind == 'o' ? 8 : 16;
    Digits buffer;
    const std::string_view digits = WriteDigits(buffer, value, base, kind == 'X');
    std::string_view prefix;
    if (picture.Alternate && base == 16 && value != 0)
        prefix = kind == 'X' ? "0X" : "0x";
    else if (picture.Alternate && base == 8 && LeadingZeros(picture, digits) == 0)
        prefix = "0";
    PutInteger(out, picture, prefix, digits);
}

void PutPointer(UnitWriter& out, Picture picture, FormatArguments& arguments)
{
    picture.Precision = 2 * sizeof(void*);
    Digits digits;
    PutInteger(out, picture, "", WriteDigits(digits, arguments.NextWord(), 16, true));
}

void PutDouble(UnitWriter& out, const Picture& picture, FormatArguments& arguments, WCHAR kind)
{
    const double value = picture.ArgumentSize == Size::longDouble ? arguments.NextLongDouble() : arguments.NextDouble();
    const bool upper = kind < 'a';
    const char lowerKind = static_cast<char>(upper ? kind - 'A' + 'a' : kind);
    const double magnitude = std::isnan(value) ? value : std::fabs(value);
    layer::DoubleText text;
    text.Render(magnitude, lowerKind, picture.Precision < 0 ? 6 : picture.Precision, picture.Alternate, upper);
    const Numeral numeral{.Prefix = Sign(picture, std::signbit(value)),
                          .LeadingZeros = 0,
                          .Digits = text.mantissa(),
                          .TrailingZeros = text.trailingZeros(),
                          .Suffix = text.exponent()};
    PutNumeral(out, picture, numeral, picture.Zero);
}

/// Puts a text whose length is not known ahead, at the side of its field that the picture asks for. `put`
/// puts it into a writer.
template <class PutText>
void PutPadded(UnitWriter& out, const Picture& picture, PutText put)
{
    const std::size_t before = out.used();
    if (picture.Width > 0 && !picture.Left) {
        UnitWriter measure(nullptr, picture.Width);
        put(measure);
        out.Fill(picture.Zero ? '0' : ' ', Padding(picture, measure.used()));
        put(out);
        return;
    }
    put(out);
    if (!out.overrun())
        out.Fill(' ', Padding(picture, out.used() - before));
}

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

bool IsNarrow(const Picture& picture, bool narrowKind)
{
    switch (picture.ArgumentSize) {
        case Size::half: return true;
        case Size::wide:
        case Size::quad: return false;
        default: return narrowKind;
    }
}

void PutText(UnitWriter& out, const Picture& picture, FormatArguments& arguments, bool narrowKind)
{
    const DWORD_PTR argument = arguments.NextWord();
    const std::size_t limit = picture.Precision < 0 ? Unbounded : static_cast<std::size_t>(picture.Precision);
    if (argument == 0) {
        const std::string_view null = std::string_view("(null)").substr(0, limit);
        PutPadded(out, picture, [&](UnitWriter& to) { to.Put(null); });
    } else if (IsNarrow(picture, narrowKind)) {
        const auto text = reinterpret_cast<const char*>(argument);
        PutPadded(out, picture, [&](UnitWriter& to) { PutNarrow(to, text, limit); });
    } else {
        const auto text = reinterpret_cast<const WCHAR*>(argument);
        PutPadded(out, picture, [&](UnitWriter& to) { to.PutUntil(0, text, limit); });
    }
}

void PutCharacter(UnitWriter& out, const Picture& picture, FormatArguments& arguments, bool narrowKind)
{
    const int argument = arguments.NextInt();
    auto unit = static_cast<WCHAR>(argument);
    if (IsNarrow(picture, narrowKind)) {
        const char byte = static_cast<char>(argument);
        const layer::DecodedCharacter character = layer::DecodeNarrow(&byte, 1);
        unit = character.UnitCount == 1 ? character.Units[0] : WCHAR{'?'};
    }
    PutPadded(out, picture, [&](UnitWriter& to) { to.Put(unit); });
}

void PutConversion(UnitWriter& out, const Picture& picture, WCHAR kind, FormatArguments& arguments)
{
    switch (kind) {
        case 'd':
        case 'i': return PutSigned(out, picture, arguments);
        case 'u':
        case 'o':
        case 'x':
        case 'X': return PutUnsigned(out, picture, arguments, kind);
        case 'p': return PutPointer(out, picture, arguments);
        case 's':
        case 'S': return PutText(out, picture, arguments, kind == 'S');
        case 'c':
        case 'C': return PutCharacter(out, picture, arguments, kind == 'C');
        case 'e':
        case 'E':
        case 'f':
        case 'F':
        case 'g':
        case 'G':
            if (arguments.listed())
                return PutDouble(out, picture, arguments, kind);
            break;
        default: break;
    }
    out.Put(kind);
}

}  // namespace

void layer::Format(UnitWriter& out, const WCHAR* format, FormatArguments& arguments)
{
    for (;;) {
        const WCHAR* at = out.PutUntil('%', format);
        if (*at != '%' || out.overrun())
            return;
        ++at;
        Picture picture;
        at = ParseFlags(at, picture);
        at = ParseWidth(at, picture, arguments);
        at = ParsePrecision(at, picture, arguments);
        at = ParseSize(at, picture);
        if (*at == 0)
            return;
        PutConversion(out, picture, *at, arguments);
        if (out.overrun())
            return;
        format = at + 1;
    }
}

int _vsnwprintf(WCHAR* buffer, SIZE_T count, const WCHAR* format, va_list arguments)
{
    if (format == nullptr || (buffer == nullptr && count != 0))
        return -1;
    const std::size_t room = std::min<std::size_t>(count, INT_MAX);
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
