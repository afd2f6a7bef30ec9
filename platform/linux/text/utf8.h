// Conversion between UTF-8 and UTF-16: of single code points, and of whole texts.
#pragma once

#include "text/text.h"

#include <cstdint>
#include <optional>

namespace layer {

/// Takes the place of input that is not a character.
constexpr WCHAR ReplacementCharacter = 0xFFFD;

constexpr bool IsHighSurrogate(unsigned unit)
{
    return (unit & 0xFC00) == 0xD800;
}

constexpr bool IsLowSurrogate(unsigned unit)
{
    return (unit & 0xFC00) == 0xDC00;
}

/// One character of narrow text, decoded to UTF-16.
struct DecodedCharacter {
    std::size_t ByteCount;  // the bytes that it occupies, at least 1
    unsigned UnitCount;     // 1 or 2, or 0 if the bytes are malformed
    WCHAR Units[2];
};

/// Decodes the first character of UTF-8 text. A malformed character extends to the first byte that cannot belong to it.
/// @param bytes the size of the text, at least 1
DecodedCharacter DecodeUtf8(const char* text, std::size_t bytes);

/// Removes the first code point from `text`, which must not be empty.
/// @return the code point; no value if the first unit, which is removed, is an unpaired surrogate
std::optional<std::uint32_t> TakeCodePoint(TextView& text);

/// One character encoded as UTF-8.
struct Utf8Character {
    char Bytes[4];
    std::size_t Count;  // 1 to 4
};

/// Encodes a code point. @param point at most 0x10FFFF and not a surrogate
Utf8Character EncodeUtf8(std::uint32_t point);

/// Converts UTF-16 to UTF-8. An unpaired surrogate becomes the replacement character.
/// @throws std::bad_alloc
std::string ToUtf8(TextView text);

/// Converts UTF-8 to UTF-16. Each malformed character becomes one replacement character.
/// @throws std::bad_alloc
Text FromUtf8(std::string_view text);

}  // namespace layer
