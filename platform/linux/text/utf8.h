// UTF-8 and UTF-16: one code point at a time, and whole texts.
#pragma once

#include "text/text.h"

#include <cstdint>
#include <optional>

namespace layer {

constexpr WCHAR ReplacementCharacter = 0xFFFD;

constexpr bool IsHighSurrogate(unsigned unit)
{
    return (unit & 0xFC00) == 0xD800;
}

constexpr bool IsLowSurrogate(unsigned unit)
{
    return (unit & 0xFC00) == 0xDC00;
}

/// One character decoded from narrow text.
struct NarrowCharacter {
    std::size_t Bytes;  // that it occupies, at least 1
    unsigned Units;     // 1 or 2; 0 for bytes that are no character
    WCHAR Unit[2];
};

/// Decodes the first character of UTF-8 text of `bytes` bytes, at least 1. Malformed input takes the bytes up to the
/// first one that cannot belong to the character.
NarrowCharacter TakeUtf8(const char* text, std::size_t bytes);

/// Removes the first code point from the front of `text`, which is not empty. An unpaired surrogate gives no value, and
/// one unit is removed.
std::optional<std::uint32_t> TakeCodePoint(TextView& text);

/// A code point in UTF-8.
struct Utf8Character {
    char Bytes[4];
    std::size_t Count;  // 1 to 4
};

/// @param point at most 0x10FFFF, and no surrogate
Utf8Character EncodeUtf8(std::uint32_t point);

/// UTF-8 for UTF-16. An unpaired surrogate becomes the replacement character.
/// @throws std::bad_alloc
std::string ToUtf8(TextView text);

/// UTF-16 for UTF-8. Bytes that are no character become the replacement character.
/// @throws std::bad_alloc
Text FromUtf8(std::string_view text);

}  // namespace layer
