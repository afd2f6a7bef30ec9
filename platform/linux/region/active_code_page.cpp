// The active code page is read from the store once. Its characters of one and two bytes are kept as a table,
// for callers that take text apart character by character and may not allocate each time.
#include "region/active_code_page.h"

#include "base/lifecycle.h"
#include "region/iconv_converter.h"
#include "store/machine_value.h"
#include "tessmaru/text.h"

#include <array>
#include <atomic>
#include <memory>
#include <new>

namespace {

using namespace utility::literals;
using layer::Converter;
using layer::DecodedCharacter;

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
    constexpr const WCHAR* key = u"SYSTEM\\CurrentControlSet\\Control\\Nls\\CodePage"_w;
    std::array<WCHAR, 8> text;
    switch (layer::ReadMachineText(HKEY_LOCAL_MACHINE, key, u"ACP"_w, text)) {
        case layer::LookupResult::unavailable: return 0;
        case layer::LookupResult::missing: return CP_UTF8;
        case layer::LookupResult::found: break;
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

    DecodedCharacter Take(const char* text, std::size_t bytes) const
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
    static DecodedCharacter Found(std::size_t bytes, WCHAR unit, bool zero)
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

void DropTable()
{
    delete activeTable.exchange(nullptr);
}

constinit layer::LifecycleHooks hooks{.AfterForkInChild = nullptr, .AtThreadEnd = nullptr, .AtUnload = DropTable};

const PageTable* PageTable::Active()
{
    const PageTable* known = activeTable.load(std::memory_order_acquire);
    if (known != nullptr)
        return known;
    Converter converter(layer::WideCharset, layer::NameOf(layer::ActiveCodePage()).data());
    if (!converter.open())
        return nullptr;
    std::unique_ptr<const PageTable> made(new (std::nothrow) PageTable(converter));
    layer::RegisterHooks(hooks);
    // If two threads arrive here at once, one of them keeps its table.
    if (made && activeTable.compare_exchange_strong(known, made.get(), std::memory_order_acq_rel))
        return made.release();
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
    if (page == 0)
        return CP_UTF8;
    activePage.store(page, std::memory_order_relaxed);
    return page;
}

DecodedCharacter DecodeNarrow(const char* text, std::size_t bytes)
{
    if (ActiveCodePage() == CP_UTF8)
        return DecodeUtf8(text, bytes);
    if (const PageTable* const table = PageTable::Active())
        return table->Take(text, bytes);
    const auto byte = static_cast<unsigned char>(text[0]);
    return {1, byte < 0x80 ? 1U : 0U, {byte}};
}

}  // namespace layer
