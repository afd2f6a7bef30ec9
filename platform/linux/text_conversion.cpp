// Narrow text: UTF-8 by code of our own, every other code page through the C library's `iconv`.
#include "text_conversion.h"

#include "code_page.h"

#include <string>

namespace {

constexpr WCHAR Replacement = 0xFFFD;

using layer::NarrowCharacter;

bool IsHighSurrogate(WCHAR unit)
{
    return (unit & 0xFC00) == 0xD800;
}

bool IsLowSurrogate(WCHAR unit)
{
    return (unit & 0xFC00) == 0xDC00;
}

NarrowCharacter Undecodable(std::size_t bytes)
{
    return {bytes, 0, {}};
}

NarrowCharacter FromCodePoint(std::size_t bytes, std::uint32_t point)
{
    if (point < 0x10000)
        return {bytes, 1, {static_cast<WCHAR>(point)}};
    return {bytes, 2, {static_cast<WCHAR>(0xD7C0 + (point >> 10)), static_cast<WCHAR>(0xDC00 | (point & 0x3FF))}};
}

int NarrowToUtf8(const WCHAR* wide, std::size_t units, layer::Sink<char> sink)
{
    const auto put = [&](std::uint32_t byte) { sink.Put(static_cast<char>(byte)); };
    const auto putTail = [&](std::uint32_t bits) { put(0x80 | (bits & 0x3F)); };
    for (std::size_t i = 0; (i += sink.PutAscii(wide + i, units - i)) < units && !sink.full(); ++i) {
        std::uint32_t point = wide[i];
        if (IsHighSurrogate(wide[i]) && i + 1 < units && IsLowSurrogate(wide[i + 1]))
            point = 0x10000 + ((point & 0x3FF) << 10) + (wide[++i] & 0x3FFU);
        else if (IsHighSurrogate(wide[i]) || IsLowSurrogate(wide[i]))
            point = Replacement;
        if (point < 0x800) {
            put(0xC0 | (point >> 6));
        } else if (point < 0x10000) {
            put(0xE0 | (point >> 12));
            putTail(point >> 6);
        } else {
            put(0xF0 | (point >> 18));
            putTail(point >> 12);
            putTail(point >> 6);
        }
        putTail(point);
    }
    return sink.Result();
}

int WidenUtf8(const char* narrow, std::size_t bytes, bool strict, layer::Sink<WCHAR> sink)
{
    for (std::size_t i = 0; (i += sink.PutAscii(narrow + i, bytes - i)) < bytes && !sink.full();) {
        const NarrowCharacter character = layer::TakeUtf8(narrow + i, bytes - i);
        if (character.Units != 0)
            sink.Put(character.Unit, character.Units);
        else if (strict)
            return layer::Fail(ERROR_NO_UNICODE_TRANSLATION, 0);
        else
            sink.Put(Replacement);
        i += character.Bytes;
    }
    return sink.Result();
}

int NarrowToPage(UINT codePage, const WCHAR* wide, std::size_t units, char defaultChar, BOOL* usedDefault,
                 layer::Sink<char> sink)
{
    layer::Converter converter(layer::NameOf(codePage).data(), layer::WideCharset);
    if (!converter.open())
        return layer::Fail(converter.openError(), 0);
    std::string_view from(reinterpret_cast<const char*>(wide), units * sizeof(WCHAR));
    // A character beyond the first plane gives two default characters, one a unit, as on the platform.
    while (converter.Run(from, sink) != 0) {
        converter.Finish(sink);
        sink.Put(defaultChar);
        from.remove_prefix(sizeof(WCHAR));
        if (usedDefault != nullptr)
            *usedDefault = TRUE;
    }
    converter.Finish(sink);
    return sink.Result();
}

/// What stands for bytes that have no character: the middle dot where katakana are at home.
WCHAR DefaultUnit(UINT codePage)
{
    constexpr UINT japanese = 932;
    return codePage == japanese ? WCHAR{0x30FB} : WCHAR{'?'};
}

int WidenPage(UINT codePage, const char* narrow, std::size_t bytes, bool strict, layer::Sink<WCHAR> sink)
{
    layer::Converter converter(layer::WideCharset, layer::NameOf(codePage).data());
    if (!converter.open())
        return layer::Fail(converter.openError(), 0);
    std::string_view from(narrow, bytes);
    while (converter.Run(from, sink) != 0) {
        if (strict)
            return layer::Fail(ERROR_NO_UNICODE_TRANSLATION, 0);
        converter.Finish(sink);
        sink.Put(DefaultUnit(codePage));
        from.remove_prefix(1);
    }
    converter.Finish(sink);
    return sink.Result();
}

/// A length that the caller gave, or that of terminated text with its terminator; 0 for one that means nothing.
template <class Unit>
std::size_t LengthOf(const Unit* text, int length)
{
    if (length == -1)
        return std::char_traits<Unit>::length(text) + 1;
    return length > 0 ? static_cast<std::size_t>(length) : 0;
}

bool IsSound(const void* from, int fromLength, const void* to, int toLength)
{
    return from != nullptr && fromLength != 0 && fromLength >= -1 && toLength >= 0 &&
           (toLength == 0 || (to != nullptr && to != from));
}

UINT Resolve(UINT codePage)
{
    return codePage == CP_ACP ? layer::ActiveCodePage() : codePage;
}

}  // namespace

layer::NarrowCharacter layer::TakeUtf8(const char* text, std::size_t bytes)
{
    const auto byteAt = [&](std::size_t i) -> unsigned { return static_cast<unsigned char>(text[i]); };
    const unsigned lead = byteAt(0);
    if (lead < 0x80)
        return {1, 1, {static_cast<WCHAR>(lead)}};
    if (lead < 0xC2 || lead > 0xF4)
        return Undecodable(1);
    const std::size_t length = lead < 0xE0 ? 2 : lead < 0xF0 ? 3 : 4;
    std::uint32_t point = lead & (0x7FU >> length);
    // The second byte shuts out overlong forms, surrogates and what lies beyond the last plane.
    unsigned low = lead == 0xE0 ? 0xA0 : lead == 0xF0 ? 0x90 : 0x80;
    unsigned high = lead == 0xED ? 0x9F : lead == 0xF4 ? 0x8F : 0xBF;
    for (std::size_t i = 1; i < length; ++i) {
        if (i == bytes || byteAt(i) < low || byteAt(i) > high)
            return Undecodable(i);
        point = point << 6 | (byteAt(i) & 0x3F);
        low = 0x80;
        high = 0xBF;
    }
    return FromCodePoint(length, point);
}

int WideCharToMultiByte(UINT codePage, DWORD flags, LPCWSTR wide, int wideUnits, LPSTR narrow, int narrowBytes,
                        LPCSTR defaultChar, BOOL* usedDefault)
{
    if (!IsSound(wide, wideUnits, narrow, narrowBytes))
        return layer::Fail(ERROR_INVALID_PARAMETER, 0);
    if (flags != 0)
        return layer::Fail(ERROR_INVALID_FLAGS, 0);
    const std::size_t units = LengthOf(wide, wideUnits);
    const layer::Sink<char> sink(narrow, narrowBytes);
    const UINT page = Resolve(codePage);
    if (page == CP_UTF8) {
        // UTF-8 has every character, so nothing stands in for one.
        if (defaultChar != nullptr || usedDefault != nullptr)
            return layer::Fail(ERROR_INVALID_PARAMETER, 0);
        return NarrowToUtf8(wide, units, sink);
    }
    if (usedDefault != nullptr)
        *usedDefault = FALSE;
    return NarrowToPage(page, wide, units, defaultChar != nullptr ? *defaultChar : '?', usedDefault, sink);
}

int MultiByteToWideChar(UINT codePage, DWORD flags, LPCSTR narrow, int narrowBytes, LPWSTR wide, int wideUnits)
{
    if (!IsSound(narrow, narrowBytes, wide, wideUnits))
        return layer::Fail(ERROR_INVALID_PARAMETER, 0);
    if ((flags & ~MB_ERR_INVALID_CHARS) != 0)
        return layer::Fail(ERROR_INVALID_FLAGS, 0);
    const std::size_t bytes = LengthOf(narrow, narrowBytes);
    const bool strict = flags != 0;
    const layer::Sink<WCHAR> sink(wide, wideUnits);
    const UINT page = Resolve(codePage);
    return page == CP_UTF8 ? WidenUtf8(narrow, bytes, strict, sink) : WidenPage(page, narrow, bytes, strict, sink);
}
