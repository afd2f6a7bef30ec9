// Fuzzes formatting: any format with arguments that are valid for every conversion, each the address of a terminated
// text.
#include "format/printf.h"
#include "testkit/exact_copy.h"
#include "testkit/require.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstring>

namespace {

constexpr std::size_t MaxRoom = 300;
constexpr std::size_t Guards = 4;
constexpr WCHAR Guard = 0xBEEF;

const WCHAR text[] = {'t', 0x00E4, 0xD83D, 0xDE00, '%', 's', 0, 0};

using testkit::Require;

/// Floating-point numbers can only come from an argument list. All its arguments are numbers, so the format must not
/// take a text, and they are enough for MaxListed conversions of any kind.
constexpr std::ptrdiff_t MaxListed = 4;

int FormatNumbers(WCHAR* buffer, std::size_t room, const WCHAR* format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    const int result = _vsnwprintf(buffer, room, format, arguments);
    va_end(arguments);
    return result;
}

bool TakesNumbersOnly(const WCHAR* format, std::size_t units)
{
    const auto isText = [](WCHAR unit) { return unit == 's' || unit == 'S'; };
    const auto takes = [](WCHAR unit) { return unit == '%' || unit == '*'; };
    return std::none_of(format, format + units, isText) && std::count_if(format, format + units, takes) <= MaxListed;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    if (size < 3)
        return 0;
    const std::size_t room = (data[0] + 256U * data[1]) % MaxRoom;
    double number = 0;
    std::memcpy(&number, data + 2, std::min(sizeof number, size - 2));
    data += 2;
    size -= 2;

    // One unit for each byte: every conversion is ASCII.
    const testkit::ExactCopy<WCHAR> format(size + 1);  // with a terminator
    std::copy_n(data, size, format.data());
    std::array<DWORD_PTR, 8> values;
    values.fill(reinterpret_cast<DWORD_PTR>(text));
    std::array<WCHAR, MaxRoom + Guards> buffer;
    buffer.fill(Guard);

    layer::UnitWriter out(buffer.data(), room);
    layer::FormatArguments arguments(values);
    layer::Format(out, format.data(), arguments);
    Require(out.used() <= room);
    for (std::size_t i = room; i < buffer.size(); ++i)
        Require(buffer[i] == Guard);

    layer::UnitWriter measure(nullptr, room);
    layer::FormatArguments again(values);
    layer::Format(measure, format.data(), again);
    Require(measure.used() == out.used() && measure.overrun() == out.overrun());

    if (TakesNumbersOnly(format.data(), size)) {
        const int result = FormatNumbers(buffer.data(), room, format.data(), number, number, number, number, 1, 2, 3, 4,
                                         5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16);
        Require(result >= -1 && result <= static_cast<int>(room));
        for (std::size_t i = room; i < buffer.size(); ++i)
            Require(buffer[i] == Guard);
    }
    return 0;
}
