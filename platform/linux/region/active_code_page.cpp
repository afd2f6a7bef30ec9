// The active code page is read from the store once. Callers that decode text character by character are served by the
// layer's own table of a page of single bytes, otherwise by a table that is made from `iconv` once: an `iconv`
// conversion per character would be expensive and would allocate memory.
#include "region/active_code_page.h"

#include "base/lifecycle.h"
#include "store/code_page_value.h"
#include "store/machine_value.h"
#include "text/code_page.h"
#include "text/debug_output.h"
#include "text/iconv_converter.h"
#include "text/page_decoder.h"

#include <array>
#include <atomic>
#include <memory>
#include <new>
#include <span>
#include <string>

namespace {

using layer::Converter;
using layer::DecodedCharacter;

std::atomic<UINT> activePage{0};  // 0 until it has been read

/// Names a page that cannot be used in debug output.
void ReportUnusable(UINT codePage) noexcept
try {
    layer::DebugLine("code page " + std::to_string(codePage) +
                     " of the settings is unknown here; UTF-8 is used instead");
} catch (const std::bad_alloc&) {
    return;
}

/// @return the code page if the machine can convert it, else UTF-8; 0 if memory is exhausted
UINT UsablePage(UINT codePage)
{
    const layer::PageDecoder decoder(codePage);
    if (decoder.open())
        return codePage;
    if (decoder.outOfMemory())
        return 0;
    ReportUnusable(codePage);
    return CP_UTF8;
}

/// Determines the active code page. @return 0 if the store cannot be read this time
UINT ReadActivePage()
{
    std::array<WCHAR, 8> text;
    switch (layer::ReadMachineText(HKEY_LOCAL_MACHINE, layer::CodePageKey, layer::CodePageName, text)) {
        case layer::LookupResult::unavailable: return 0;
        case layer::LookupResult::missing: return CP_UTF8;
        case layer::LookupResult::found: break;
    }
    const UINT number = layer::ParseCodePage(text.data());
    return number == CP_UTF8 ? CP_UTF8 : UsablePage(number);
}

/// The characters of a code page that have one or two bytes. Longer characters, which a few East Asian pages have,
/// decode as malformed.
class PageTable {
public:
    /// The table of the active code page. @return null if memory is exhausted
    static const PageTable* Active();

    /// Tries each byte, and each pair that begins with a byte that is incomplete by itself. Then adds what the layer's
    /// own table of the page has.
    PageTable(UINT codePage, Converter& converter)
    {
        for (unsigned first = 0; first < 256; ++first) {
            bool incomplete = false;
            const char lead[] = {static_cast<char>(first)};
            SingleByte[first] = ConvertCharacter(converter, {lead, 1}, incomplete);
            IsLead[first] = incomplete;
            for (unsigned second = 1; incomplete && second < 256; ++second) {
                bool ignored = false;
                const char pair[] = {static_cast<char>(first), static_cast<char>(second)};
                DoubleByte[first][second] = ConvertCharacter(converter, {pair, 2}, ignored);
            }
        }
        if (const layer::CodePage* const page = layer::FindCodePage(codePage))
            Add(page->Runs);
    }

    /// Decodes the first character of a text of at least one byte.
    DecodedCharacter Decode(const char* text, std::size_t bytes) const
    {
        const auto first = static_cast<unsigned char>(text[0]);
        if (!IsLead[first])
            return MakeCharacter(1, SingleByte[first], first == 0);
        if (bytes < 2)
            return {1, 0, {}};
        const WCHAR unit = DoubleByte[first][static_cast<unsigned char>(text[1])];
        return MakeCharacter(unit != 0 ? 2 : 1, unit, false);
    }

private:
    void Add(std::span<const layer::CodeRun> runs)
    {
        for (const layer::CodeRun& run : runs) {
            for (unsigned i = 0; run.Code != 0 && i < run.Count; ++i) {
                const unsigned code = run.Code + i;
                const bool pair = code > 0xFF;
                (pair ? DoubleByte[code >> 8][code & 0xFF] : SingleByte[code]) = static_cast<WCHAR>(run.Unit + i);
                if (pair)
                    IsLead[code >> 8] = true;
            }
        }
    }

    /// @param zero whether the unit 0 is the character zero and not the mark of a malformed one
    static DecodedCharacter MakeCharacter(std::size_t bytes, WCHAR unit, bool zero)
    {
        return {bytes, unit != 0 || zero ? 1U : 0U, {unit}};
    }

    /// Converts one character. @return its unit, 0 if there is none or more than one
    static WCHAR ConvertCharacter(Converter& converter, std::string_view bytes, bool& incomplete)
    {
        WCHAR units[4]{};
        layer::Sink<WCHAR> sink(units, 4);
        const int error = converter.Convert(bytes, sink);
        // Also discards an incomplete character, so that the next conversion begins in the initial state.
        converter.Finish(sink);
        incomplete = error == EINVAL;
        return error == 0 && sink.count() == 1 ? units[0] : WCHAR{0};
    }

    bool IsLead[256]{};
    // The units of the characters; 0 marks bytes that are not a character.
    WCHAR SingleByte[256]{};
    WCHAR DoubleByte[256][256]{};
};

std::atomic<const PageTable*> activeTable{nullptr};

void DeleteTable()
{
    delete activeTable.exchange(nullptr);
}

constinit layer::LifecycleHooks hooks{.AfterForkInChild = nullptr, .AtThreadEnd = nullptr, .AtUnload = DeleteTable};

const PageTable* PageTable::Active()
{
    const PageTable* known = activeTable.load(std::memory_order_acquire);
    if (known != nullptr)
        return known;
    const UINT codePage = layer::ActiveCodePage();
    Converter converter(layer::WideCharset, layer::CharsetNameOf(codePage).data());
    if (!converter.open())
        return nullptr;
    std::unique_ptr<const PageTable> created(new (std::nothrow) PageTable(codePage, converter));
    layer::RegisterHooks(hooks);
    // Two threads may build a table at the same time. The first one stores its table; the other one deletes its own and
    // uses the stored one, which the failed exchange has put into `known`.
    if (created && activeTable.compare_exchange_strong(known, created.get(), std::memory_order_acq_rel))
        return created.release();
    return known;
}

}  // namespace

namespace layer {

UINT ActiveCodePage()
{
    UINT page = activePage.load(std::memory_order_relaxed);
    if (page != 0)
        return page;
    page = ReadActivePage();
    if (page == 0)  // not cached: the next call tries again
        return CP_UTF8;
    activePage.store(page, std::memory_order_relaxed);
    return page;
}

DecodedCharacter DecodeNarrow(const char* text, std::size_t bytes)
{
    const UINT codePage = ActiveCodePage();
    if (codePage == CP_UTF8)
        return DecodeUtf8(text, bytes);
    const auto byte = static_cast<unsigned char>(text[0]);
    if (const CodePage* const page = FindCodePage(codePage); page != nullptr && page->singleBytes())
        return {1, 1, {page->UnitOf(byte)}};
    if (const PageTable* const table = PageTable::Active())
        return table->Decode(text, bytes);
    // Without memory for the table only ASCII, which nearly all code pages contain, can be decoded.
    return {1, byte < 0x80 ? 1U : 0U, {byte}};
}

}  // namespace layer
