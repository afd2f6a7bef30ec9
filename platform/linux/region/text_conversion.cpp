// Conversions between wide and narrow text: UTF-8 by the layer's own code, every other code page through `iconv`.
#include "base/last_error.h"
#include "region/active_code_page.h"
#include "region/iconv_converter.h"
#include "text/utf8.h"

#include <string>

namespace {

int NarrowToUtf8(const WCHAR* wide, std::size_t units, layer::Sink<char> sink)
{
    layer::TextView text(wide, units);
    for (;;) {
        text.remove_prefix(sink.PutAscii(text.data(), text.size()));
        if (text.empty() || sink.full())
            return sink.Result();
        const layer::Utf8Character character =
            layer::EncodeUtf8(layer::TakeCodePoint(text).value_or(layer::ReplacementCharacter));
        sink.Put(character.Bytes, character.Count);
    }
}

int WidenUtf8(const char* narrow, std::size_t bytes, bool strict, layer::Sink<WCHAR> sink)
{
    for (std::size_t i = 0; (i += sink.PutAscii(narrow + i, bytes - i)) < bytes && !sink.full();) {
        const layer::DecodedCharacter character = layer::DecodeUtf8(narrow + i, bytes - i);
        if (character.UnitCount != 0)
            sink.Put(character.Units, character.UnitCount);
        else if (strict)
            return layer::Fail(ERROR_NO_UNICODE_TRANSLATION, 0);
        else
            sink.Put(layer::ReplacementCharacter);
        i += character.ByteCount;
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
