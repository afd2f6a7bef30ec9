// A page of single bytes needs its table only. In a page of double bytes `iconv` decodes what it can, and the table has
// the rest.
#include "text/page_decoder.h"

namespace {

unsigned ByteAt(std::string_view text, std::size_t index)
{
    return static_cast<unsigned char>(text[index]);
}

/// Restores the pair that `iconv` refuses in page 949 after it has removed it. Every other malformed character stays.
/// @param start where `from` began before the conversion
void RestoreRemovedPair(const char* start, std::string_view& from)
{
    constexpr std::string_view removed = "\xA2\xE8";
    if (std::string_view(start, static_cast<std::size_t>(from.data() - start)).ends_with(removed))
        from = {from.data() - removed.size(), from.size() + removed.size()};
}

}  // namespace

layer::PageDecoder::PageDecoder(UINT codePage) : Page(FindCodePage(codePage))
{
    if (Page == nullptr || !Page->singleBytes())
        Iconv.emplace(WideCharset, CharsetNameOf(codePage).data());
}

bool layer::PageDecoder::DecodeSingleBytes(const CodePage& page, std::string_view& from, Sink<WCHAR>& sink, bool strict)
{
    for (;;) {
        from.remove_prefix(sink.PutAscii(from.data(), from.size()));
        if (from.empty() || sink.full())
            return true;
        const WCHAR unit = page.UnitOf(static_cast<unsigned char>(from[0]));
        if (strict && IsPrivateUse(unit))
            return false;
        sink.Put(unit);
        from.remove_prefix(1);
    }
}

/// Decodes the first character, which `iconv` does not have, if it is in the table. @return whether it is
bool layer::PageDecoder::DecodeException(std::string_view& from, Sink<WCHAR>& sink, bool strict) const
{
    if (Page == nullptr)
        return false;
    std::size_t bytes = 1;
    WCHAR unit = UnitOfCode(*Page, ByteAt(from, 0));
    if (unit != 0 && strict && IsPrivateUse(unit))
        return false;
    if (unit == 0 && from.size() > 1) {
        bytes = 2;
        unit = UnitOfCode(*Page, ByteAt(from, 0) << 8 | ByteAt(from, 1));
    }
    if (unit == 0)
        return false;
    sink.Put(unit);
    from.remove_prefix(bytes);
    return true;
}

bool layer::PageDecoder::Decode(std::string_view& from, Sink<WCHAR>& sink, bool strict)
{
    if (!Iconv)
        return DecodeSingleBytes(*Page, from, sink, strict);
    for (;;) {
        const char* const start = from.data();
        const bool whole = Iconv->Convert(from, sink) == 0;
        Iconv->Finish(sink);
        constexpr UINT korean = 949;
        if (!whole && Page != nullptr && Page->Number == korean)
            RestoreRemovedPair(start, from);
        // An empty rest is safe, whatever the converter of another C library removes.
        if (whole || from.empty())
            return true;
        if (!DecodeException(from, sink, strict))
            return false;
    }
}

std::size_t layer::PageDecoder::MalformedBytes(std::string_view from) const
{
    // The platform takes the byte after a lead byte with it, whatever it is, but never a terminator. In other pages the
    // next byte may begin a character.
    const bool pair = Page != nullptr && Iconv && from.size() > 1 && from[1] != 0;
    return pair ? 2 : 1;
}
