// Measures conversions between vectors and safe arrays. The floor is the allocations and copies that each conversion
// needs.
#include "rows.h"

#include "tessmaru/automation.h"

#include <cstdlib>
#include <cstring>

namespace bench {
namespace {

namespace Convert = utility::CCOMUtility;

constexpr std::size_t Strings = 10000;
constexpr std::size_t Units = 20;
constexpr std::size_t Numbers = 1000000;
constexpr std::size_t Variants = 10000;

/// Makes, fills and frees a list with `bytes` for each string, and a block for each string's units.
void FillBlocks(const std::vector<utility::wstring>& source, std::size_t bytes, std::size_t further)
{
    auto* const list = static_cast<std::byte*>(std::calloc(source.size(), bytes));
    for (std::size_t i = 0; i < source.size(); ++i) {
        const std::size_t units = (source[i].size() + 1) * sizeof(unsigned short);
        void* const block = std::malloc(units + further);
        std::memcpy(block, source[i].data(), units);
        std::memcpy(list + i * bytes, &block, sizeof block);
    }
    Use(*list);
    for (std::size_t i = 0; i < source.size(); ++i) {
        void* block = nullptr;
        std::memcpy(&block, list + i * bytes, sizeof block);
        std::free(block);
    }
    std::free(list);
}

void Demand(LONG result)
{
    if (result != 0)
        throw std::runtime_error("a conversion failed");
}

Comparison CompareStringsIn(const Plan& plan)
{
    const std::vector<utility::wstring> source(Strings, utility::wstring(Units, u'x'));
    const auto convert = [&](unsigned) {
        SAFEARRAY* array = nullptr;
        Demand(Convert::VectStrToSafeArray(source, &array));
        SafeArrayDestroy(array);
    };
    const auto floor = [&](unsigned) { FillBlocks(source, sizeof(BSTR), sizeof(DWORD)); };
    return Compare(convert, floor, 100, plan.Rounds);
}

Comparison CompareStringsOut(const Plan& plan)
{
    const std::vector<utility::wstring> source(Strings, utility::wstring(Units, u'x'));
    SAFEARRAY* array = nullptr;
    Demand(Convert::VectStrToSafeArray(source, &array));
    const auto convert = [&](unsigned) {
        std::vector<utility::wstring> target;
        Demand(Convert::SafeArrayToVectStr(array, target));
        Use(target.front());
    };
    const auto floor = [&](unsigned) { FillBlocks(source, sizeof(utility::wstring), 0); };
    const Comparison comparison = Compare(convert, floor, 100, plan.Rounds);
    SafeArrayDestroy(array);
    return comparison;
}

Comparison CompareNumbers(const Plan& plan)
{
    const std::vector<LONG> source(Numbers, 7);
    SAFEARRAY* array = nullptr;
    Demand(Convert::VectLongToSafeArray(source, &array));
    std::vector<LONG> target(Numbers);
    const auto convert = [&](unsigned) {
        Demand(Convert::SafeArrayToVectLong(array, target));
        Use(target.front());
    };
    const auto floor = [&](unsigned) {
        std::memcpy(target.data(), array->pvData, Numbers * sizeof(LONG));
        Use(target.front());
    };
    const Comparison comparison = Compare(convert, floor, 100, plan.Rounds);
    SafeArrayDestroy(array);
    return comparison;
}

Comparison CompareNumbersIn(const Plan& plan)
{
    const std::vector<LONG> source(Numbers, 7);
    const auto convert = [&](unsigned) {
        SAFEARRAY* array = nullptr;
        Demand(Convert::VectLongToSafeArray(source, &array));
        SafeArrayDestroy(array);
    };
    const auto floor = [&](unsigned) {
        void* const block = std::calloc(Numbers, sizeof(LONG));
        std::memcpy(block, source.data(), Numbers * sizeof(LONG));
        Use(block);
        std::free(block);
    };
    return Compare(convert, floor, 100, plan.Rounds);
}

Comparison CompareVariants(const Plan& plan)
{
    const std::vector<_variant_t> source(Variants, _variant_t(2.5));
    std::vector<_variant_t> copy;
    const auto convert = [&](unsigned) {
        SAFEARRAY* array = nullptr;
        Demand(Convert::VectVariantToSafeArray(source, &array));
        Demand(Convert::SafeArrayToVariant(array, copy));
        SafeArrayDestroy(array);
    };
    const auto floor = [&](unsigned) {
        void* const block = std::calloc(Variants, sizeof(VARIANT));
        std::memcpy(block, source.data(), Variants * sizeof(VARIANT));
        std::memcpy(static_cast<void*>(copy.data()), block, Variants * sizeof(VARIANT));
        Use(block);
        std::free(block);
    };
    copy = source;
    return Compare(convert, floor, 100, plan.Rounds);
}

}  // namespace

void MeasureAutomation(const Plan& plan, const testkit::ScratchFolder&)
{
    PrintHeading("Lists as safe arrays");
    PrintRow("10,000 strings of 20 units in, to malloc, memcpy", CompareStringsIn(plan), {1.7, 0});
    PrintRow("the same out, to malloc, memcpy", CompareStringsOut(plan), {1.4, 0});
    PrintRow("a million numbers in, to calloc, memcpy", CompareNumbersIn(plan), {1.2, 0});
    PrintRow("a million numbers out, to memcpy", CompareNumbers(plan), {1.2, 0});
    PrintRow("10,000 variants in and out, to memcpy", CompareVariants(plan), {});
}

}  // namespace bench
