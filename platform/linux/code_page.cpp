// The active code page is read from the store once. Its characters of one and two bytes are kept as a table,
// for callers that take text apart character by character and may not allocate each time.
#include "code_page.h"

#include "machine_text.h"
#include "text_conversion.h"

#include <algorithm>
#include <bit>
#include <charconv>
#include <cstring>
#include <memory>
#include <new>

const char layer::WideCharset[] = {'U', 'T', 'F', '-', '1', '6', std::endian::native == std::endian::little ? 'L' : 'B',
                                   'E', '\0'};

namespace {

using layer::Converter;
using layer::NarrowCharacter;

std::atomic<UINT> activePage{0};  // 0: not read yet

/// The page of this number where the machine can convert it, else UTF-8; 0 for want of memory.
UINT UsablePage(UINT codePage)
{
    const Converter converter(layer::WideCharset, layer::NameOf(codePage).data());
    if (converter.open())
        return codePage;
    return converter.outOfMemory() ? 0 : CP_UTF8;
}

/// 0 if it cannot be read now.
UINT ReadActivePage()
{
    static constexpr auto key = layer::Literal(u"SYSTEM\\CurrentControlSet\\Control\\Nls\\CodePage");
    static constexpr auto value = layer::Literal(u"ACP");
    std::array<WCHAR, 8> text;
    switch (layer::ReadMachineText(HKEY_LOCAL_MACHINE, key.data(), value.data(), text)) {
        case layer::Lookup::failed: return 0;
        case layer::Lookup::missing: return CP_UTF8;
        case layer::Lookup::found: break;
    }
    UINT number = 0;
    for (const WCHAR* at = text.data(); *at != 0; ++at) {
        if (*at < '0' || *at > '9')
            return CP_UTF8;
        number = number * 10 + (*at - U'0');
    }
    return number == CP_UTF8 ? CP_UTF8 : UsablePage(number);
}

/// The characters of a code page that take one byte or two; 0 where there is none.
class PageTable {
public:
    /// That of the active code page, or null without memory.
    static const PageTable* Active();

    explicit PageTable(Converter& converter)
    {
        for (unsigned first = 0; first < 256; ++first) {
            bool incomplete = false;
            const char lead[] = {static_cast<char>(first)};
            Single[first] = Convert(converter, {lead, 1}, incomplete);
            Leads[first] = incomplete;
            for (unsigned second = 1; incomplete && second < 256; ++second) {
                bool ignored = false;
                const char pair[] = {static_cast<char>(first), static_cast<char>(second)};
                Double[first][second] = Convert(converter, {pair, 2}, ignored);
            }
        }
    }

    NarrowCharacter Take(const char* text, std::size_t bytes) const
    {
        const auto first = static_cast<unsigned char>(text[0]);
        if (!Leads[first])
            return Found(1, Single[first], first == 0);
        if (bytes < 2)
            return {1, 0, {}};
        const WCHAR unit = Double[first][static_cast<unsigned char>(text[1])];
        return Found(unit != 0 ? 2 : 1, unit, false);
    }

private:
    static NarrowCharacter Found(std::size_t bytes, WCHAR unit, bool zero)
    {
        return {bytes, unit != 0 || zero ? 1U : 0U, {unit}};
    }

    static WCHAR Convert(Converter& converter, std::string_view bytes, bool& incomplete)
    {
        WCHAR units[4]{};
        layer::Sink<WCHAR> sink(units, 4);
        const int error = converter.Run(bytes, sink);
        converter.Finish(sink);
        incomplete = error == EINVAL;
        return error == 0 && sink.count() == 1 ? units[0] : WCHAR{0};
    }

    bool Leads[256]{};
    WCHAR Single[256]{};
    WCHAR Double[256][256]{};
};

std::atomic<const PageTable*> activeTable{nullptr};

const PageTable* PageTable::Active()
{
    const PageTable* known = activeTable.load(std::memory_order_acquire);
    if (known != nullptr)
        return known;
    Converter converter(layer::WideCharset, layer::NameOf(layer::ActiveCodePage()).data());
    if (!converter.open())
        return nullptr;
    std::unique_ptr<const PageTable> made(new (std::nothrow) PageTable(converter));
    // Of two threads that come here at once, one keeps its table.
    if (made && activeTable.compare_exchange_strong(known, made.get(), std::memory_order_acq_rel))
        return made.release();
    return known;
}

// Behind the library's static destructors, which still log.
[[gnu::destructor(101)]] void DropTable()
{
    delete activeTable.exchange(nullptr);
}

}  // namespace

namespace layer {

/// The C library's name of a code page. Most stand under "CP" and their number.
CharsetName NameOf(UINT codePage)
{
    struct Entry {
        UINT CodePage;
        const char* Name;
    };
    static constexpr Entry named[] = {{20127, "US-ASCII"}, {20866, "KOI8-R"},   {20932, "EUC-JP"}, {21866, "KOI8-U"},
                                      {51932, "EUC-JP"},   {51936, "EUC-CN"},   {51949, "EUC-KR"}, {54936, "GB18030"},
                                      {1361, "JOHAB"},     {10000, "MACINTOSH"}};
    CharsetName name{};
    const auto found = std::find_if(std::begin(named), std::end(named),
                                    [&](const Entry& entry) { return entry.CodePage == codePage; });
    if (found != std::end(named)) {
        std::strncpy(name.data(), found->Name, name.size() - 1);
        return name;
    }
    constexpr UINT FirstIso = 28591;
    constexpr UINT LastIso = 28606;
    const bool iso = codePage >= FirstIso && codePage <= LastIso;
    const std::string_view prefix = iso ? "ISO-8859-" : "CP";
    prefix.copy(name.data(), prefix.size());
    std::to_chars(name.data() + prefix.size(), name.data() + name.size() - 1, iso ? codePage - FirstIso + 1 : codePage);
    return name;
}

UINT ActiveCodePage()
{
    UINT page = activePage.load(std::memory_order_relaxed);
    if (page != 0)
        return page;
    page = ReadActivePage();
    if (page == 0)
        return CP_UTF8;
    activePage.store(page, std::memory_order_relaxed);
    return page;
}

NarrowCharacter TakeNarrow(const char* text, std::size_t bytes)
{
    if (ActiveCodePage() == CP_UTF8)
        return TakeUtf8(text, bytes);
    if (const PageTable* const table = PageTable::Active())
        return table->Take(text, bytes);
    const auto byte = static_cast<unsigned char>(text[0]);
    return {1, byte < 0x80 ? 1U : 0U, {byte}};
}

}  // namespace layer
