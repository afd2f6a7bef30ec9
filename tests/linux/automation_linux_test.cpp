// Automation data on Linux: out of memory, and invalid descriptors.
#include "system.h"
#include "tessmaru/automation.h"
#include "testkit/linux/failing_allocation.h"
#include "testkit/text.h"

#include <gtest/gtest.h>

#include <cstring>
#include <new>

namespace {

using namespace utility::literals;
using utility::wstring;
namespace Convert = utility::CCOMUtility;

SAFEARRAY* MakeStrings(const std::vector<wstring>& strings)
{
    SAFEARRAY* array = nullptr;
    EXPECT_EQ(Convert::VectStrToSafeArray(strings, &array), S_OK);
    return array;
}

std::vector<_variant_t> ManyVariants()
{
    VARIANT array{};
    array.vt = VT_ARRAY | VT_BSTR;
    array.parray = MakeStrings({testkit::Wide("in"), testkit::Wide("side")});
    std::vector<_variant_t> variants;
    variants.reserve(3);
    variants.emplace_back(u"text"_w);
    variants.emplace_back();
    variants.emplace_back(array, false);
    return variants;
}

TEST(AutomationOnLinux, OutOfMemoryInConversionsToArrays)
{
    const std::vector<wstring> strings{testkit::Wide("one"), wstring(), testkit::Wide("three")};
    const int failures = testkit::FailEachAllocation([&] {
        SAFEARRAY* array = nullptr;
        try {
            const LONG result = Convert::VectStrToSafeArray(strings, &array);
            EXPECT_TRUE(result == S_OK || (result == E_OUTOFMEMORY && array == nullptr));
        } catch (const _com_error& failure) {
            EXPECT_EQ(failure.Error(), E_OUTOFMEMORY);
            EXPECT_NE(array, nullptr) << "the caller gets what was converted";
        }
        EXPECT_EQ(SafeArrayDestroy(array), S_OK) << "not locked";
    });
    EXPECT_EQ(failures, 2 + 2 * 3);

    const std::vector<_variant_t> variants = ManyVariants();
    EXPECT_GT(testkit::FailEachAllocation([&] {
                  SAFEARRAY* array = nullptr;
                  const LONG result = Convert::VectVariantToSafeArray(variants, &array);
                  EXPECT_TRUE(result == S_OK || (result == E_OUTOFMEMORY && array == nullptr));
                  SafeArrayDestroy(array);
              }),
              6);
}

TEST(AutomationOnLinux, OutOfMemoryInConversionsFromArrays)
{
    SAFEARRAY* const strings = MakeStrings({wstring(20, u'a'), wstring(20, u'b'), testkit::Wide("short")});
    EXPECT_EQ(testkit::FailEachAllocation([&] {
                  std::vector<wstring> target;
                  try {
                      EXPECT_EQ(Convert::SafeArrayToVectStr(strings, target), S_OK);
                      EXPECT_EQ(target.size(), 3U);
                  } catch (const std::bad_alloc&) {
                      EXPECT_TRUE(target.empty());
                  }
                  EXPECT_EQ(strings->cLocks, 0U);
              }),
              3);
    SafeArrayDestroy(strings);

    SAFEARRAY* variants = nullptr;
    ASSERT_EQ(Convert::VectVariantToSafeArray(ManyVariants(), &variants), S_OK);
    EXPECT_GT(testkit::FailEachAllocation([&] {
                  std::vector<_variant_t> target;
                  try {
                      EXPECT_EQ(Convert::SafeArrayToVariant(variants, target), S_OK);
                      EXPECT_EQ(target.size(), 3U);
                  } catch (const std::bad_alloc&) {
                      EXPECT_TRUE(target.empty());
                  } catch (const _com_error& failure) {
                      EXPECT_EQ(failure.Error(), E_OUTOFMEMORY);
                      EXPECT_TRUE(target.empty());
                  }
                  EXPECT_EQ(variants->cLocks, 0U);
              }),
              4);
    SafeArrayDestroy(variants);
}

TEST(SafeArraysOnLinux, InconsistentDescriptorTakesNoNull)
{
    SAFEARRAY* const array = MakeStrings({testkit::Wide("old")});
    const ULONG bytes = array->cbElements;
    array->cbElements = 2;
    LONG index = 0;
    EXPECT_EQ(SafeArrayPutElement(array, &index, nullptr), E_INVALIDARG);
    array->cbElements = bytes;
    SafeArrayDestroy(array);
}

TEST(AutomationOnLinux, FailureLeavesTheOldValue)
{
    VARIANT held{};
    VARIANT source{};
    held.vt = source.vt = VT_BSTR;
    source.bstrVal = SysAllocString(u"new"_w);
    SAFEARRAY* const array = MakeStrings({testkit::Wide("old")});
    auto& slot = *static_cast<BSTR*>(array->pvData);
    for (int n = 1; n <= 3; ++n) {
        held.bstrVal = SysAllocString(u"old"_w);
        BSTR string = SysAllocString(u"old"_w);
        SAFEARRAYBOUND more{100, 0};
        LONG index = 0;
        testkit::FailAllocation(1);
        const HRESULT copied = VariantCopy(&held, &source);
        testkit::FailAllocation(1);
        const INT replaced = SysReAllocStringLen(&string, nullptr, 1000);
        testkit::FailAllocation(1);
        const HRESULT put = SafeArrayPutElement(array, &index, source.bstrVal);
        testkit::FailAllocation(1);
        const HRESULT sized = SafeArrayRedim(array, &more);
        testkit::FailAllocation(0);
        EXPECT_EQ(copied, E_OUTOFMEMORY);
        EXPECT_EQ(wstring(held.bstrVal), testkit::Wide("old"));
        EXPECT_FALSE(replaced);
        EXPECT_EQ(wstring(string), testkit::Wide("old"));
        EXPECT_EQ(put, E_OUTOFMEMORY);
        EXPECT_EQ(sized, E_OUTOFMEMORY);
        EXPECT_EQ(array->rgsabound[0].cElements, 1U);
        EXPECT_EQ(wstring(slot), testkit::Wide("old"));
        VariantClear(&held);
        held.vt = VT_BSTR;
        SysFreeString(string);
    }
    SafeArrayDestroy(array);
    VariantClear(&source);
}

TEST(AutomationOnLinux, VariantWithALockedArrayIsNotOverwritten)
{
    VARIANT held{};
    held.vt = VT_ARRAY | VT_I4;
    held.parray = SafeArrayCreateVector(VT_I4, 0, 1);
    const _variant_t source(u"text"_w);
    SafeArrayLock(held.parray);
    const int before = testkit::LiveBlocks();
    EXPECT_EQ(VariantClear(&held), DISP_E_ARRAYISLOCKED);
    EXPECT_EQ(VariantCopy(&held, &source), DISP_E_ARRAYISLOCKED);
    EXPECT_EQ(testkit::LiveBlocks(), before);
    EXPECT_EQ(held.vt, VT_ARRAY | VT_I4);
    SafeArrayUnlock(held.parray);
    EXPECT_EQ(VariantClear(&held), S_OK);
}

TEST(AutomationOnLinux, VariantCanBeReplacedByAPartOfItself)
{
    VARIANT outer{};
    outer.vt = VT_ARRAY | VT_VARIANT;
    outer.parray = SafeArrayCreateVector(VT_VARIANT, 0, 1);
    auto& inner = *static_cast<VARIANT*>(outer.parray->pvData);
    inner.vt = VT_BSTR;
    inner.bstrVal = SysAllocString(u"inside"_w);
    ASSERT_EQ(VariantCopy(&outer, &inner), S_OK);
    EXPECT_EQ(wstring(outer.bstrVal), testkit::Wide("inside"));
    VariantClear(&outer);
}

TEST(AutomationOnLinux, BoundsAndSizesOutOfRange)
{
    const struct {
        VARTYPE Type;
        SAFEARRAYBOUND Bounds[2];
        UINT Dimensions;
    } rows[] = {{VT_I4, {{0x40000000, 0}}, 1},      {VT_UI1, {{0xFFFFFFFF, 0}}, 1},
                {VT_VARIANT, {{0x0FFFFFFF, 0}}, 1}, {VT_I4, {{0x10000, 0}, {0x10000, 0}}, 2},
                {VT_UI1, {{2, 0x7FFFFFFF}}, 1},     {VT_UI1, {{1, 0}, {0x80000001, 0}}, 2}};
    for (const auto& row : rows) {
        SAFEARRAYBOUND bounds[] = {row.Bounds[0], row.Bounds[1]};
        EXPECT_EQ(SafeArrayCreate(row.Type, row.Dimensions, bounds), nullptr) << row.Bounds[0].cElements;
    }
    SAFEARRAYBOUND edge{1, 0x7FFFFFFF};
    SAFEARRAY* const array = SafeArrayCreate(VT_I4, 1, &edge);
    ASSERT_NE(array, nullptr);
    edge.cElements = 2;
    EXPECT_EQ(SafeArrayRedim(array, &edge), E_INVALIDARG);
    edge = {0xFFFFFFFF, static_cast<LONG>(0x80000000)};
    EXPECT_EQ(SafeArrayRedim(array, &edge), E_OUTOFMEMORY);
    EXPECT_EQ(utility::getSafeArrayCount(array, 1), 1);
    EXPECT_EQ(SafeArrayDestroy(array), S_OK);
}

/// An array on the stack, as another library may make it.
struct Foreign {
    SAFEARRAY Array{};
    LONG Data[4] = {1, 2, 3, 4};

    Foreign()
    {
        Array.cDims = 1;
        Array.fFeatures = FADF_AUTO | FADF_FIXEDSIZE;
        Array.cbElements = sizeof(LONG);
        Array.pvData = Data;
        Array.rgsabound[0] = {4, 0};
    }
};

TEST(AutomationOnLinux, ArraysOfOtherLibraries)
{
    Foreign foreign;
    std::vector<LONG> numbers;
    EXPECT_EQ(Convert::SafeArrayToVectLong(&foreign.Array, numbers), S_OK);
    EXPECT_EQ(numbers, std::vector<LONG>({1, 2, 3, 4}));
    VARTYPE type = 0;
    EXPECT_EQ(SafeArrayGetVartype(&foreign.Array, &type), E_INVALIDARG);
    SAFEARRAY* copy = nullptr;
    ASSERT_EQ(SafeArrayCopy(&foreign.Array, &copy), S_OK);
    EXPECT_EQ(std::memcmp(copy->pvData, foreign.Data, sizeof foreign.Data), 0);
    EXPECT_EQ(SafeArrayDestroy(copy), S_OK);
    SAFEARRAYBOUND bound{1, 0};
    EXPECT_EQ(SafeArrayRedim(&foreign.Array, &bound), DISP_E_ARRAYISLOCKED);
    EXPECT_EQ(SafeArrayDestroy(&foreign.Array), S_OK) << "the layer does not free its memory";
    EXPECT_EQ(foreign.Data[0], 0);
}

TEST(AutomationOnLinux, DamagedDescriptors)
{
    LONG index = 0;
    void* element = nullptr;
    std::vector<LONG> numbers;
    SAFEARRAY* copy = nullptr;
    {
        Foreign noData;
        noData.Array.pvData = nullptr;
        EXPECT_EQ(SafeArrayPtrOfIndex(&noData.Array, &index, &element), E_INVALIDARG);
        EXPECT_THROW(Convert::SafeArrayToVectLong(&noData.Array, numbers), _com_error);
        EXPECT_EQ(noData.Array.cLocks, 0U);
    }
    {
        Foreign noDimension;
        noDimension.Array.cDims = 0;
        EXPECT_EQ(Convert::SafeArrayToVectLong(&noDimension.Array, numbers), E_INVALIDARG);
        EXPECT_EQ(SafeArrayCopy(&noDimension.Array, &copy), E_INVALIDARG);
    }
    {
        Foreign narrow;  // elements are read with their own width
        narrow.Array.cbElements = 1;
        narrow.Array.rgsabound[0] = {13, 0};
        EXPECT_EQ(Convert::SafeArrayToVectLong(&narrow.Array, numbers), S_OK);
        EXPECT_EQ(numbers.size(), 13U);
    }
    {
        Foreign huge;
        huge.Array.cbElements = 0xFFFFFFFF;
        huge.Array.rgsabound[0] = {0xFFFFFFFF, 0};
        EXPECT_EQ(SafeArrayCopy(&huge.Array, &copy), E_OUTOFMEMORY);
        EXPECT_EQ(SafeArrayDestroyData(&huge.Array), E_UNEXPECTED);
    }
    {
        Foreign mislabelled;  // strings whose width is not a pointer's are not followed
        mislabelled.Array.fFeatures |= FADF_BSTR;
        mislabelled.Array.cbElements = 2;
        EXPECT_EQ(SafeArrayDestroy(&mislabelled.Array), S_OK);
    }
    EXPECT_EQ(copy, nullptr);
}

}  // namespace
