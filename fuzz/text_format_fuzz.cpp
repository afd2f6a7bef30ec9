// Any picture over arguments that are sound for every conversion: each is the address of a terminated text.
#include "format/printf.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>

namespace {

constexpr std::size_t MaxRoom = 300;
constexpr std::size_t Guards = 4;
constexpr WCHAR Guard = 0xBEEF;

const WCHAR text[] = {'t', 0x00E4, 0xD83D, 0xDE00, '%', 's', 0, 0};

void Check(bool holds)
{
    if (!holds)
        std::abort();
}

/// Floating-point numbers come from a list only. All numbers, so not for a picture that asks for a text, and
/// enough for MaxListed conversions of any kind.
constexpr std::ptrdiff_t MaxListed = 4;

int FormatNumbers(WCHAR* buffer, std::size_t room, const WCHAR* format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    const int result = _vsnwprintf(buffer, room, format, arguments);
    va_end(arguments);
    return result;
}

bool AsksForNumbersOnly(const WCHAR* format, std::size_t units)
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

    // One unit a byte: all the pictures are ASCII. At its exact size, so that reading on is seen.
    const std::unique_ptr<WCHAR[]> format(new WCHAR[size + 1]);
    std::copy_n(data, size, format.get());
    format[size] = 0;
    std::array<DWORD_PTR, 8> values;
    values.fill(reinterpret_cast<DWORD_PTR>(text));
    std::array<WCHAR, MaxRoom + Guards> buffer;
    buffer.fill(Guard);

    layer::UnitWriter out(buffer.data(), room);
    layer::FormatArguments arguments(values);
    layer::Format(out, format.get(), arguments);
    Check(out.used() <= room);
    for (std::size_t i = room; i < buffer.size(); ++i)
        Check(buffer[i] == Guard);

    layer::UnitWriter measure(nullptr, room);
    layer::FormatArguments again(values);
    layer::Format(measure, format.get(), again);
    Check(measure.used() == out.used() && measure.overrun() == out.overrun());

    if (AsksForNumbersOnly(format.get(), size)) {
        const int result = FormatNumbers(buffer.data(), room, format.get(), number, number, number, number, 1, 2, 3, 4,
                                         5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16);
        Check(result >= -1 && result <= static_cast<int>(room));
        for (std::size_t i = room; i < buffer.size(); ++i)
            Check(buffer[i] == Guard);
    }
    return 0;
}
