// Decodes and encodes UTF-8. Overlong forms, surrogates and code points above 0x10FFFF are malformed.
#include "text/utf8.h"

namespace {

using layer::DecodedCharacter;

DecodedCharacter Malformed(std::size_t bytes)
{
    return {bytes, 0, {}};
}

DecodedCharacter FromCodePoint(std::size_t bytes, std::uint32_t point)
{
    if (point < 0x10000)
        return {bytes, 1, {static_cast<WCHAR>(point)}};
    // 0xD7C0 is 0xD800 - (0x10000 >> 10): the high surrogate encodes the code point minus 0x10000.
    return {bytes, 2, {static_cast<WCHAR>(0xD7C0 + (point >> 10)), static_cast<WCHAR>(0xDC00 | (point & 0x3FF))}};
}

}  // namespace

namespace layer {

DecodedCharacter DecodeUtf8(const char* text, std::size_t bytes)
{
    const auto byteAt = [&](std::size_t i) -> unsigned { return static_cast<unsigned char>(text[i]); };
    const unsigned lead = byteAt(0);
    if (lead < 0x80)
        return {1, 1, {static_cast<WCHAR>(lead)}};
    // 0x80 to 0xBF continue a character, 0xC0 and 0xC1 occur in overlong forms only, 0xF5 and above exceed 0x10FFFF.
    if (lead < 0xC2 || lead > 0xF4)
        return Malformed(1);
    const std::size_t length = lead < 0xE0 ? 2 : lead < 0xF0 ? 3 : 4;
    std::uint32_t point = lead & (0x7FU >> length);
    // After some lead bytes the range of the second byte is narrower. That excludes overlong forms (E0, F0), surrogates
    // (ED) and code points above 0x10FFFF (F4).
    unsigned low = lead == 0xE0 ? 0xA0 : lead == 0xF0 ? 0x90 : 0x80;
    unsigned high = lead == 0xED ? 0x9F : lead == 0xF4 ? 0x8F : 0xBF;
    for (std::size_t i = 1; i < length; ++i) {
        if (i == bytes || byteAt(i) < low || byteAt(i) > high)
            return Malformed(i);
        point = point << 6 | (byteAt(i) & 0x3F);
        low = 0x80;
        high = 0xBF;
    }
    return FromCodePoint(length, point);
}

std::optional<std::uint32_t> TakeCodePoint(TextView& text)
{
    const std::uint32_t unit = text[0];
    if (IsHighSurrogate(unit) && text.size() >= 2 && IsLowSurrogate(text[1])) {
        const std::uint32_t point = 0x10000 + ((unit & 0x3FF) << 10) + (text[1] & 0x3FFU);
        text.remove_prefix(2);
        return point;
    }
    text.remove_prefix(1);
    return IsHighSurrogate(unit) || IsLowSurrogate(unit) ? std::nullopt : std::optional(unit);
}

Utf8Character EncodeUtf8(std::uint32_t point)
{
    // `tail` is a continuation byte: 10xxxxxx with six bits of the code point.
    const auto byte = [](std::uint32_t bits) { return static_cast<char>(bits); };
    const auto tail = [point](unsigned shift) { return static_cast<char>(0x80 | (point >> shift & 0x3F)); };
    if (point < 0x80)
        return {{byte(point)}, 1};
    if (point < 0x800)
        return {{byte(0xC0 | point >> 6), tail(0)}, 2};
    if (point < 0x10000)
        return {{byte(0xE0 | point >> 12), tail(6), tail(0)}, 3};
    return {{byte(0xF0 | point >> 18), tail(12), tail(6), tail(0)}, 4};
}

std::string ToUtf8(TextView text)
{
    std::string narrow;
    narrow.reserve(text.size());  // exact for ASCII
    while (!text.empty()) {
        const Utf8Character character = EncodeUtf8(TakeCodePoint(text).value_or(ReplacementCharacter));
        narrow.append(character.Bytes, character.Count);
    }
    return narrow;
}

Text FromUtf8(std::string_view text)
{
    Text wide;
    wide.reserve(text.size());  // UTF-16 never has more units than UTF-8 has bytes
    while (!text.empty()) {
        const DecodedCharacter character = DecodeUtf8(text.data(), text.size());
        if (character.UnitCount == 0)
            wide += ReplacementCharacter;
        else
            wide.append(character.Units, character.UnitCount);
        text.remove_prefix(character.ByteCount);
    }
    return wide;
}

}  // namespace layer
