// Fuzzes message templates: any template and line width, with inserts that are valid for every conversion, each the
// address of a terminated text.
#include "system.h"
#include "testkit/exact_copy.h"
#include "testkit/require.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <vector>

namespace {

constexpr DWORD MaxRoom = 200;
constexpr WCHAR Guard = 0xBEEF;
constexpr std::size_t MaxInsert = 99;  // the highest number; each star may take one more insert

const WCHAR text[] = {'i', 'n', 0x00E4, '%', '1', 0, 0};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    if (size < 2)
        return 0;
    const DWORD room = data[0] % MaxRoom;
    const DWORD width = (data[1] & 2) != 0 ? 0xFFU : data[1] >> 3U;
    const DWORD flags = FORMAT_MESSAGE_FROM_STRING | FORMAT_MESSAGE_ARGUMENT_ARRAY |
                        ((data[1] & 1) != 0 ? FORMAT_MESSAGE_IGNORE_INSERTS : 0) | width;
    const bool given = (data[1] & 4) == 0;
    data += 2;
    size -= 2;

    const testkit::ExactCopy<WCHAR> source(size + 1);  // with a terminator
    std::copy_n(data, size, source.data());
    const auto stars = static_cast<std::size_t>(std::count(data, data + size, '*'));
    std::vector<DWORD_PTR> values(MaxInsert + stars, reinterpret_cast<DWORD_PTR>(text));
    std::array<WCHAR, MaxRoom + 4> buffer;
    buffer.fill(Guard);

    const DWORD units = FormatMessageW(flags, source.data(), 0, 0, buffer.data(), room,
                                       given ? reinterpret_cast<va_list*>(values.data()) : nullptr);
    // An empty text has a terminator like any other. A failure leaves the buffer alone.
    const bool delivered = units != 0 || buffer[0] != Guard;
    testkit::Require(!delivered || (units < room && buffer[units] == 0));
    for (std::size_t i = delivered ? units + 1 : 0; i < buffer.size(); ++i)
        testkit::Require(buffer[i] == Guard);
    return 0;
}
