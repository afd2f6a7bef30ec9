// Searches the tables of code pages. They are constant data, so they need neither memory nor modules of the C library.
#include "text/code_page.h"

#include <algorithm>
#include <array>
#include <iterator>
#include <numeric>

namespace {

using layer::CodePage;
using layer::CodeRun;

/// A unit that some pages lack, and the unit whose code they use for it.
struct BestFit {
    WCHAR Unit;
    WCHAR Substitute;
    std::uint16_t Pages;  // bits by the place in the table of pages
};

#include "text/code_pages.def"

constexpr std::size_t UpperBytes = 128;

/// For each page of single bytes the indices of its upper half, in the order of their units.
constexpr auto UpperOrders = [] {
    std::array<std::array<unsigned char, UpperBytes>, std::size(Pages)> orders{};
    for (std::size_t page = 0; page < std::size(Pages); ++page) {
        std::iota(orders[page].begin(), orders[page].end(), static_cast<unsigned char>(0));
        if (const WCHAR* const upper = Pages[page].Upper)
            std::ranges::sort(orders[page], {}, [upper](unsigned char index) { return upper[index]; });
    }
    return orders;
}();

/// For each high byte whether any page has a run or a best fit of such units. Most ideographs have not, so a text of
/// them needs no search.
constexpr auto ExceptionRows = [] {
    std::array<bool, 256> rows{};
    for (const BestFit& entry : BestFits)
        rows[entry.Unit >> 8] = true;
    for (const CodePage& page : Pages) {
        for (const CodeRun& run : page.Runs)
            rows[run.Unit >> 8] = rows[static_cast<WCHAR>(run.Unit + run.Count - 1) >> 8] = true;
    }
    return rows;
}();

std::size_t IndexOf(const CodePage& page)
{
    return static_cast<std::size_t>(&page - Pages);
}

}  // namespace

namespace layer {

const CodePage* FindCodePage(UINT number)
{
    const CodePage* const found = std::ranges::find(Pages, number, &CodePage::Number);
    return found != std::end(Pages) ? found : nullptr;
}

std::optional<unsigned char> ByteOf(const CodePage& page, WCHAR unit)
{
    const auto& order = UpperOrders[IndexOf(page)];
    const auto found =
        std::ranges::lower_bound(order, unit, {}, [&](unsigned char index) { return page.Upper[index]; });
    if (found == order.end() || page.Upper[*found] != unit)
        return std::nullopt;
    return static_cast<unsigned char>(UpperBytes + *found);
}

const CodeRun* FindRun(const CodePage& page, WCHAR unit)
{
    if (!ExceptionRows[unit >> 8])
        return nullptr;
    const auto after = std::ranges::upper_bound(page.Runs, unit, {}, &CodeRun::Unit);
    if (after == page.Runs.begin())
        return nullptr;
    const CodeRun& run = *std::prev(after);
    return unit - run.Unit < run.Count ? &run : nullptr;
}

WCHAR UnitOfCode(const CodePage& page, unsigned code)
{
    for (const CodeRun& run : page.Runs) {
        if (run.Code != 0 && code >= run.Code && code - run.Code < run.Count)
            return static_cast<WCHAR>(run.Unit + (code - run.Code));
    }
    return 0;
}

WCHAR BestFitOf(const CodePage& page, WCHAR unit)
{
    if (!ExceptionRows[unit >> 8])
        return 0;
    const BestFit* entry = std::ranges::lower_bound(BestFits, unit, {}, &BestFit::Unit);
    for (; entry != std::end(BestFits) && entry->Unit == unit; ++entry) {
        if ((entry->Pages >> IndexOf(page) & 1) != 0)
            return entry->Substitute;
    }
    return 0;
}

}  // namespace layer
