// Constant tables of texts that need no relocation when the library is loaded.
//
// The texts of a table lie one after another in one array, each with a zero at its end, and an array of offsets says
// where each one starts; an array of pointers would have to be adjusted at each load. Texts and keys come from one list
// of rows, which is included once for each array:
//
//     #define ROW(key, text) key,
//     constexpr std::uint32_t keys[] = {
//     #include "rows.def"
//     };
//     #undef ROW
//     #define ROW(key, text) text "\0"
//     constexpr char texts[] =
//     #include "rows.def"
//         ;
//     #undef ROW
//
//     constexpr auto starts = packed_texts::StartsOf(keys, texts);
//     static_assert(packed_texts::AreSorted(keys));
#pragma once

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <string_view>

namespace packed_texts {

/// Where each text starts, and where the next one would: one offset more than there are rows.
template <std::size_t Rows>
using Starts = std::array<std::uint16_t, Rows + 1>;

/// The offsets of the texts that belong to these keys. Does not compile if there are more or fewer texts than keys.
template <class Key, std::size_t Rows, std::size_t Bytes>
consteval Starts<Rows> StartsOf(const Key (&)[Rows], const char (&texts)[Bytes])
{
    static_assert(Bytes <= 0x10000, "an offset has 16 bits");
    Starts<Rows> starts{};
    std::size_t row = 0;
    // The last byte is the terminator of the whole literal.
    for (std::size_t at = 0; at + 1 < Bytes; ++at) {
        if (texts[at] == '\0')
            starts.at(++row) = static_cast<std::uint16_t>(at + 1);
    }
    if (row != Rows)
        throw "a key without a text";
    return starts;
}

/// The text of a row, counted from 0.
template <std::size_t Offsets>
constexpr std::string_view TextOf(std::size_t row, const char* texts, const std::array<std::uint16_t, Offsets>& starts)
{
    return {texts + starts[row], static_cast<std::size_t>(starts[row + 1] - starts[row] - 1)};
}

/// Whether the keys ascend and none occurs twice.
template <class Key, std::size_t Rows>
constexpr bool AreSorted(const Key (&keys)[Rows])
{
    return std::adjacent_find(keys, keys + Rows, std::greater_equal<>()) == keys + Rows;
}

}  // namespace packed_texts
