// The fast part of writing UTF-16 text as UTF-8: runs of units that are the same character in both, and need no escape.
#pragma once

#include <cstddef>

namespace records {

/// Whether a unit is written unchanged in every form of output: printable ASCII except the quote and the backslash.
constexpr bool IsPlain(char16_t unit)
{
    return unit >= 0x20 && unit < 0x7F && unit != u'"' && unit != u'\\';
}

/// Copies the plain units at the start of a text to `out`, which has room for `count` bytes.
/// @return the number of units copied
std::size_t CopyPlainRun(const char16_t* units, std::size_t count, char* out);

/// The position of the first unit that equals `wanted`; `count` if there is none.
std::size_t FindUnit(const char16_t* units, std::size_t count, char16_t wanted);

/// The forms for every processor, which tests compare with the ones above.
std::size_t CopyPlainRunPlainly(const char16_t* units, std::size_t count, char* out);
std::size_t FindUnitPlainly(const char16_t* units, std::size_t count, char16_t wanted);

}  // namespace records
