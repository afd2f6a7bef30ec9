// Measures texts of failures: the look-up of a name, to a binary search of the same table, and a whole line.
#include "rows.h"

#include "errors/error_names.h"
#include "tessmaru/errors.h"

#include <algorithm>
#include <random>

namespace bench {
namespace {

constexpr std::uint32_t hresults[] = {
#define NAME(value, name) value,
#include "errors/hresult_names.def"
};
constexpr std::uint32_t win32Errors[] = {
#include "errors/win32_error_names.def"
#undef NAME
};

/// Keys of the table in random order, more than a branch predictor can learn.
template <std::size_t Rows>
std::vector<std::uint32_t> RandomKeys(const std::uint32_t (&values)[Rows])
{
    std::mt19937 random(1);
    std::vector<std::uint32_t> keys(1 << 16);
    for (std::uint32_t& key : keys)
        key = values[random() % Rows];
    return keys;
}

template <std::size_t Rows, class Find>
Comparison CompareLookUp(const Plan& plan, const std::uint32_t (&values)[Rows], Find find)
{
    const std::vector<std::uint32_t> keys = RandomKeys(values);
    const auto look = [&](unsigned i) { Use(find(keys[i % keys.size()])); };
    const auto search = [&](unsigned i) {
        const auto* const found = std::lower_bound(std::begin(values), std::end(values), keys[i % keys.size()]);
        Use(*found);
    };
    return Compare(search, look, plan.Calls, plan.Rounds);
}

Comparison CompareLine(const Plan& plan)
{
    const auto line = [](unsigned) { Use(utility::genHResultAsString(static_cast<LONG>(0x80070002))); };
    const utility::wstring whole = utility::genHResultAsString(static_cast<LONG>(0x80070002));
    const auto copy = [&](unsigned) { Use(utility::wstring(whole)); };
    return Compare(line, copy, plan.Calls / 10, plan.Rounds);
}

}  // namespace

void MeasureErrors(const Plan& plan, const testkit::ScratchFolder&)
{
    PrintHeading("Text of failures");
    PrintRow("std::lower_bound, to a name by whole value", CompareLookUp(plan, hresults, HResultName), {0, 5});
    PrintRow("std::lower_bound, to a name by low word", CompareLookUp(plan, win32Errors, Win32ErrorName), {0, 5});
    PrintRow("a whole line of an HRESULT, to a copy of it", CompareLine(plan), {});
}

}  // namespace bench
