// A page of single bytes needs its table only. In a page of double bytes `iconv` encodes all units but those that the
// tables name.
#include "text/page_encoder.h"

#include <algorithm>

layer::PageEncoder::PageEncoder(UINT codePage, bool bestFit) : Page(FindCodePage(codePage)), BestFit(bestFit)
{
    if (Page == nullptr || !Page->singleBytes())
        Iconv.emplace(CharsetNameOf(codePage).data(), WideCharset);
}

bool layer::PageEncoder::EncodeSingleByte(WCHAR unit, Sink<char>& sink) const
{
    std::optional<unsigned char> byte = ByteOf(*Page, unit);
    if (!byte) {
        const WCHAR substitute = Substitute(unit);
        if (substitute == 0)
            return false;
        byte = substitute < 0x80 ? static_cast<unsigned char>(substitute) : ByteOf(*Page, substitute);
    }
    sink.Put(static_cast<char>(*byte));
    return true;
}

/// Whether `iconv` may encode this unit in another way than the platform.
bool layer::PageEncoder::IsException(WCHAR unit) const
{
    return BestFitOf(*Page, unit) != 0 || FindRun(*Page, unit) != nullptr;
}

bool layer::PageEncoder::EncodeException(WCHAR unit, Sink<char>& sink)
{
    if (const CodeRun* const run = FindRun(*Page, unit)) {
        if (run->Code == 0)
            return false;
        const auto code = static_cast<unsigned>(run->Code + (unit - run->Unit));
        if (code > 0xFF)
            sink.Put(static_cast<char>(code >> 8));
        sink.Put(static_cast<char>(code));
        return true;
    }
    const WCHAR substitute = Substitute(unit);
    TextView text(&substitute, 1);
    return substitute != 0 && EncodeByIconv(text, 1, sink);
}

/// Encodes the first units of `from`, as far as `iconv` has them.
bool layer::PageEncoder::EncodeByIconv(TextView& from, std::size_t units, Sink<char>& sink)
{
    std::string_view bytes(reinterpret_cast<const char*>(from.data()), units * sizeof(WCHAR));
    const bool encoded = Iconv->Convert(bytes, sink) == 0;
    Iconv->Finish(sink);
    from.remove_prefix(units - bytes.size() / sizeof(WCHAR));
    return encoded || bytes.empty();
}

bool layer::PageEncoder::Encode(TextView& from, Sink<char>& sink)
{
    if (Page == nullptr)
        return EncodeByIconv(from, from.size(), sink);
    for (;;) {
        from.remove_prefix(sink.PutAscii(from.data(), from.size()));
        if (from.empty() || sink.full())
            return true;
        if (!Iconv || IsException(from[0])) {
            if (!(Iconv ? EncodeException(from[0], sink) : EncodeSingleByte(from[0], sink)))
                return false;
            from.remove_prefix(1);
            continue;
        }
        // The limit bounds the search that is repeated after a unit that `iconv` lacks.
        constexpr std::size_t most = 32;
        std::size_t units = 1;
        while (units < std::min(most, from.size()) && !IsException(from[units]))
            ++units;
        if (!EncodeByIconv(from, units, sink))
            return false;
    }
}
