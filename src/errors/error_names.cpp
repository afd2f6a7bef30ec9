// The names of error codes, in two tables. Their rows are in hresult_names.def and win32_error_names.def, by value.
//
// A whole value is found by a perfect hash, a low word by a direct index. A binary search takes several times as long,
// because the processor cannot predict its branches.
#include "errors/error_names.h"

#include "common/packed_texts.h"
#include "settings/tag_specification.h"

#include <algorithm>
#include <array>

namespace {

#define NAME(value, name) value,
constexpr std::uint32_t hresults[] = {
#include "errors/hresult_names.def"
};
constexpr std::uint32_t win32Errors[] = {
#include "errors/win32_error_names.def"
};
#undef NAME

#define NAME(value, name) #name "\0"
constexpr char hresultNames[] =
#include "errors/hresult_names.def"
    ;
constexpr char win32ErrorNames[] =
#include "errors/win32_error_names.def"
    ;
#undef NAME

static_assert(packed_texts::AreSorted(hresults) && packed_texts::AreSorted(win32Errors), "by value, no value twice");

constexpr auto hresultStarts = packed_texts::StartsOf(hresults, hresultNames);
constexpr auto win32Starts = packed_texts::StartsOf(win32Errors, win32ErrorNames);

template <std::size_t Starts>
constexpr bool AreDistinct(const char* names, const std::array<std::uint16_t, Starts>& starts)
{
    std::array<std::string_view, Starts - 1> sorted{};
    for (std::size_t row = 0; row < sorted.size(); ++row)
        sorted[row] = packed_texts::TextOf(row, names, starts);
    std::sort(sorted.begin(), sorted.end());
    return std::adjacent_find(sorted.begin(), sorted.end()) == sorted.end();
}

static_assert(AreDistinct(hresultNames, hresultStarts) && AreDistinct(win32ErrorNames, win32Starts), "no name twice");

/// The row of each low word, counted from 1; 0: no name.
constexpr auto win32Rows = [] {
    std::array<std::uint16_t, win32Errors[std::size(win32Errors) - 1] + 1> rows{};
    for (std::size_t row = 0; row < std::size(win32Errors); ++row)
        rows[win32Errors[row]] = static_cast<std::uint16_t>(row + 1);
    return rows;
}();

/// Gives each value of the table a different slot. A value's hash selects a bucket and a slot, and the shift of the
/// bucket moves the slots of all its values until none is used twice. So a look-up takes two loads and no search.
struct PerfectHash {
    static constexpr std::uint32_t BucketBits = 7;
    static constexpr std::uint32_t Slots = 1024;

    std::array<std::uint16_t, 1U << BucketBits> Shifts{};
    std::array<std::uint16_t, Slots> Rows{};  // counted from 1; 0: the slot is free

    // Codes differ mostly in their low bits. Multiplied by 2^32 divided by the golden ratio, they spread evenly.
    static constexpr std::uint32_t Mix(std::uint32_t value) { return value * 0x9E3779B1U; }
    static constexpr std::uint32_t BucketOf(std::uint32_t value) { return Mix(value) >> (32 - BucketBits); }
    constexpr std::uint32_t SlotOf(std::uint32_t value) const
    {
        return ((Mix(value) >> 10) ^ Shifts[BucketOf(value)]) % Slots;
    }
};

// Computed by the compiler, for the values of the table as it is.
constexpr PerfectHash hresultHash = [] {
    PerfectHash hash;
    for (std::uint32_t bucket = 0; bucket < hash.Shifts.size(); ++bucket) {
        std::array<std::uint16_t, 16> rows{};
        std::size_t count = 0;
        for (std::size_t row = 0; row < std::size(hresults); ++row) {
            if (PerfectHash::BucketOf(hresults[row]) == bucket)
                rows[count++] = static_cast<std::uint16_t>(row + 1);
        }
        const auto isTaken = [&](std::uint16_t row) { return hash.Rows[hash.SlotOf(hresults[row - 1])] != 0; };
        while (std::any_of(rows.begin(), rows.begin() + count, isTaken))
            ++hash.Shifts[bucket];
        for (std::size_t i = 0; i < count; ++i)
            hash.Rows[hash.SlotOf(hresults[rows[i] - 1])] = rows[i];
    }
    return hash;
}();

constexpr bool FindsAllHResults()
{
    for (std::size_t row = 0; row < std::size(hresults); ++row) {
        if (hresultHash.Rows[hresultHash.SlotOf(hresults[row])] != row + 1)
            return false;
    }
    return true;
}

static_assert(FindsAllHResults(), "two values have one slot");

}  // namespace

std::string_view HResultName(std::uint32_t code)
{
    const std::size_t row = hresultHash.Rows[hresultHash.SlotOf(code)];
    if (row == 0 || hresults[row - 1] != code)
        return {};
    return packed_texts::TextOf(row - 1, hresultNames, hresultStarts);
}

std::string_view Win32ErrorName(std::uint32_t lowWord)
{
    const std::size_t row = lowWord < win32Rows.size() ? win32Rows[lowWord] : 0;
    return row != 0 ? packed_texts::TextOf(row - 1, win32ErrorNames, win32Starts) : std::string_view();
}
