// Conversions between wide and narrow text, in UTF-8 or in another code page.
#include "base/last_error.h"
#include "region/active_code_page.h"
#include "text/page_decoder.h"
#include "text/page_encoder.h"
#include "text/utf8.h"

#include <string>

namespace {

// Runs of ASCII are copied directly, other characters are converted one by one.
int WideToUtf8(const WCHAR* wide, std::size_t units, layer::Sink<char> sink)
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

/// @param strict fail at malformed input instead of replacing it
int Utf8ToWide(const char* narrow, std::size_t bytes, bool strict, layer::Sink<WCHAR> sink)
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

/// @param defaultChar replaces each unit that the page does not have; `usedDefault`, if not null, is then set to TRUE
int WideToCodePage(layer::PageEncoder& encoder, const WCHAR* wide, std::size_t units, char defaultChar,
                   BOOL* usedDefault, layer::Sink<char> sink)
{
    if (!encoder.open())
        return layer::Fail(encoder.openError(), 0);
    // Each unit is replaced by itself, so a surrogate pair gives two default characters, as in Win32.
    for (layer::TextView text(wide, units); !encoder.Encode(text, sink); text.remove_prefix(1)) {
        sink.Put(defaultChar);
        if (usedDefault != nullptr)
            *usedDefault = TRUE;
    }
    return sink.Result();
}

/// The unit that replaces malformed bytes: in the Japanese page the katakana middle dot, else a question mark.
WCHAR DefaultUnit(UINT codePage)
{
    constexpr UINT japanese = 932;
    return codePage == japanese ? WCHAR{0x30FB} : WCHAR{'?'};
}

int CodePageToWide(UINT codePage, const char* narrow, std::size_t bytes, bool strict, layer::Sink<WCHAR> sink)
{
    layer::PageDecoder decoder(codePage);
    if (!decoder.open())
        return layer::Fail(decoder.openError(), 0);
    for (std::string_view text(narrow, bytes); !decoder.Decode(text, sink, strict);) {
        if (strict)
            return layer::Fail(ERROR_NO_UNICODE_TRANSLATION, 0);
        sink.Put(DefaultUnit(codePage));
        text.remove_prefix(decoder.MalformedBytes(text));
    }
    return sink.Result();
}

/// The length of the input. @param length the caller's value; -1 for terminated text, whose terminator is converted too
template <class Unit>
std::size_t LengthOf(const Unit* text, int length)
{
    if (length == -1)
        return std::char_traits<Unit>::length(text) + 1;
    return length > 0 ? static_cast<std::size_t>(length) : 0;
}

/// The checks that both functions share. Input and output must not be the same buffer.
bool AreArgumentsValid(const void* from, int fromLength, const void* to, int toLength)
{
    return from != nullptr && fromLength != 0 && fromLength >= -1 && toLength >= 0 &&
           (toLength == 0 || (to != nullptr && to != from));
}

UINT ResolveCodePage(UINT codePage)
{
    return codePage == CP_ACP ? layer::ActiveCodePage() : codePage;
}

}  // namespace

int WideCharToMultiByte(UINT codePage, DWORD flags, LPCWSTR wide, int wideUnits, LPSTR narrow, int narrowBytes,
                        LPCSTR defaultChar, BOOL* usedDefault)
{
    if (!AreArgumentsValid(wide, wideUnits, narrow, narrowBytes))
        return layer::Fail(ERROR_INVALID_PARAMETER, 0);
    const UINT page = ResolveCodePage(codePage);
    if ((flags & ~(page == CP_UTF8 ? 0 : WC_NO_BEST_FIT_CHARS)) != 0)
        return layer::Fail(ERROR_INVALID_FLAGS, 0);
    const std::size_t units = LengthOf(wide, wideUnits);
    const layer::Sink<char> sink(narrow, narrowBytes);
    if (page == CP_UTF8) {
        // UTF-8 can encode every character, so Win32 rejects a default character here.
        if (defaultChar != nullptr || usedDefault != nullptr)
            return layer::Fail(ERROR_INVALID_PARAMETER, 0);
        return WideToUtf8(wide, units, sink);
    }
    if (usedDefault != nullptr)
        *usedDefault = FALSE;
    layer::PageEncoder encoder(page, (flags & WC_NO_BEST_FIT_CHARS) == 0);
    return WideToCodePage(encoder, wide, units, defaultChar != nullptr ? *defaultChar : '?', usedDefault, sink);
}

int MultiByteToWideChar(UINT codePage, DWORD flags, LPCSTR narrow, int narrowBytes, LPWSTR wide, int wideUnits)
{
    if (!AreArgumentsValid(narrow, narrowBytes, wide, wideUnits))
        return layer::Fail(ERROR_INVALID_PARAMETER, 0);
    if ((flags & ~MB_ERR_INVALID_CHARS) != 0)
        return layer::Fail(ERROR_INVALID_FLAGS, 0);
    const std::size_t bytes = LengthOf(narrow, narrowBytes);
    const bool strict = flags != 0;
    const layer::Sink<WCHAR> sink(wide, wideUnits);
    const UINT page = ResolveCodePage(codePage);
    return page == CP_UTF8 ? Utf8ToWide(narrow, bytes, strict, sink)
                           : CodePageToWide(page, narrow, bytes, strict, sink);
}
