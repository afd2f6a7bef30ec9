// Automation data on Linux: out of memory, and invalid descriptors.
#include "system.h"
#include "tessmaru/automation.h"
#include "testkit/linux/failing_allocation.h"
#include "testkit/text.h"

#include <gtest/gtest.h>

#include <cstring>
#include <functional>
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

/// Calls a conversion with each of its allocations failing. It has to report that, by its result or by an exception.
/// @param after gets whether the conversion has failed, and whether by an exception
template <class Call, class After>
void FailEachAllocation(Call call, After after)
{
    EXPECT_GT(testkit::FailEachAllocation([&] {
                  HRESULT result = E_OUTOFMEMORY;
                  bool thrown = true;
                  try {
                      result = call();
                      thrown = false;
                  } catch (const _com_error& failure) {
                      EXPECT_EQ(failure.Error(), E_OUTOFMEMORY);
                  } catch (const std::bad_alloc&) {
                  }
                  EXPECT_EQ(result, testkit::AllocationFailed() ? E_OUTOFMEMORY : S_OK);
                  after(FAILED(result), thrown);
              }),
              2);
}

TEST(AutomationOnLinux, OutOfMemoryInConversionsToArrays)
{
    SAFEARRAY* array = nullptr;
    const auto destroy = [&](bool failed, bool thrown) {
        EXPECT_EQ(array != nullptr, !failed || thrown) << "after an exception the caller has what was converted";
        EXPECT_EQ(SafeArrayDestroy(array), S_OK) << "not locked";
        array = nullptr;
    };
    const std::vector<wstring> strings{testkit::Wide("one"), testkit::Wide("two"), testkit::Wide("three")};
    FailEachAllocation([&] { return Convert::VectStrToSafeArray(strings, &array); }, destroy);
    const std::vector<_variant_t> variants = ManyVariants();
    FailEachAllocation([&] { return Convert::VectVariantToSafeArray(variants, &array); }, destroy);
}

template <class Value>
void ConvertBack(LONG (*convert)(const SAFEARRAY*, std::vector<Value>&), SAFEARRAY* array)
{
    std::vector<Value> target;
    FailEachAllocation([&] { return convert(array, target); },
                       [&](bool failed, bool) {
                           EXPECT_EQ(target.size(), failed ? 0U : 3U);
                           EXPECT_EQ(array->cLocks, 0U);
                           std::vector<Value>().swap(target);
                       });
    SafeArrayDestroy(array);
}

TEST(AutomationOnLinux, OutOfMemoryInConversionsFromArrays)
{
    ConvertBack(Convert::SafeArrayToVectStr, MakeStrings({wstring(20, u'a'), wstring(20, u'b'), testkit::Wide("c")}));
    SAFEARRAY* variants = nullptr;
    ASSERT_EQ(Convert::VectVariantToSafeArray(ManyVariants(), &variants), S_OK);
    ConvertBack(Convert::SafeArrayToVariant, variants);
}

TEST(AutomationOnLinux, FailureLeavesTheOldValue)
{
    const wstring old = testkit::Wide("old");
    const _variant_t source(u"new"_w);
    _variant_t held(old.c_str());
    BSTR string = SysAllocString(old.c_str());
    SAFEARRAY* const array = MakeStrings({old});
    SAFEARRAYBOUND more{100, 0};
    LONG index = 0;
    const std::function<bool()> calls[] = {
        [&] { return VariantCopy(&held, &source) == E_OUTOFMEMORY; },
        [&] { return SysReAllocString(&string, source.bstrVal) == FALSE; },
        [&] { return SysReAllocStringLen(&string, nullptr, 1000) == FALSE; },
        [&] { return SafeArrayPutElement(array, &index, source.bstrVal) == E_OUTOFMEMORY; },
        [&] { return SafeArrayRedim(array, &more) == E_OUTOFMEMORY; },
    };
    for (const auto& call : calls) {
        testkit::FailAllocation(1);
        const bool failed = call();
        testkit::FailAllocation(0);
        EXPECT_TRUE(failed) << &call - calls;
    }
    EXPECT_EQ(wstring(held.bstrVal), old);
    EXPECT_EQ(wstring(string), old);
    EXPECT_EQ(array->rgsabound[0].cElements, 1U);
    EXPECT_EQ(wstring(*static_cast<BSTR*>(array->pvData)), old);
    SafeArrayDestroy(array);
    SysFreeString(string);
}

TEST(AutomationOnLinux, ReplacedValuesAreFreed)
{
    const int before = testkit::LiveBlocks();
    BSTR string = SysAllocString(u"first"_w);
    EXPECT_TRUE(SysReAllocString(&string, u"second"_w));
    EXPECT_TRUE(SysReAllocStringLen(&string, u"third"_w, 5));
    EXPECT_TRUE(SysReAllocString(&string, nullptr));
    EXPECT_EQ(testkit::LiveBlocks(), before);

    VARIANT held{};
    held.vt = VT_ARRAY | VT_I4;
    held.parray = SafeArrayCreateVector(VT_I4, 0, 1);
    SafeArrayLock(held.parray);
    {
        const _variant_t source(u"text"_w);
        EXPECT_EQ(VariantCopy(&held, &source), DISP_E_ARRAYISLOCKED);
    }
    EXPECT_EQ(VariantClear(&held), DISP_E_ARRAYISLOCKED);
    EXPECT_EQ(held.vt, VT_ARRAY | VT_I4);
    SafeArrayUnlock(held.parray);
    EXPECT_EQ(VariantClear(&held), S_OK);
    EXPECT_EQ(testkit::LiveBlocks(), before) << "also the copy that was not needed";
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

template <class Value>
concept IsTaken = requires(Value value, _variant_t variant)
{
    _variant_t(value);
    variant = value;
};
static_assert(IsTaken<const char*> && IsTaken<char*> && IsTaken<const WCHAR*> && IsTaken<BSTR>);
static_assert(IsTaken<VARIANT*> && IsTaken<const VARIANT*> && IsTaken<_variant_t*> && IsTaken<IErrorInfo*>);
static_assert(IsTaken<bool> && IsTaken<long> && IsTaken<unsigned long> && IsTaken<long long>);
static_assert(!IsTaken<const wchar_t*> && !IsTaken<const char16_t*> && !IsTaken<const char8_t*> && !IsTaken<BSTR*>);
static_assert(!IsTaken<void*> && !IsTaken<bool*> && !IsTaken<std::nullptr_t> && !IsTaken<void (*)()> &&
              !IsTaken<SAFEARRAY*> && !IsTaken<LONG VARIANT::*>);

TEST(AutomationOnLinux, VariantsOfNarrowTextAndLongNumbers)
{
    const std::vector<_variant_t> texts{"caf\xC3\xA9", ""};
    for (const _variant_t& text : texts)
        EXPECT_EQ(text.vt, VT_BSTR);
    EXPECT_EQ(wstring(texts[0].bstrVal), u"caf\u00E9"_w);
    EXPECT_EQ(SysStringLen(texts[1].bstrVal), 0U);
    EXPECT_NE(texts[1].bstrVal, nullptr);
    EXPECT_EQ(_variant_t(static_cast<const char*>(nullptr)).bstrVal, nullptr);
    _variant_t held(1.5);
    held.SetString("other");
    EXPECT_EQ(wstring(held.bstrVal), testkit::Wide("other"));
    EXPECT_GT(testkit::FailEachAllocation([] {
                  try {
                      const _variant_t made("text");
                      EXPECT_FALSE(testkit::AllocationFailed());
                  } catch (const _com_error& failure) {
                      EXPECT_EQ(failure.Error(), E_OUTOFMEMORY);
                  }
              }),
              0);

    const _variant_t longest(-1LL);
    EXPECT_EQ(longest.vt, VT_I8);
    EXPECT_EQ(longest.llVal, -1);
    EXPECT_EQ(_variant_t(-1L).vt, sizeof(long) == 8 ? VT_I8 : VT_I4);
    EXPECT_EQ(_variant_t(7UL).vt, sizeof(long) == 8 ? VT_UI8 : VT_UI4);
    EXPECT_THROW(held.ChangeType(VT_UI4, &longest), _com_error) << "wine accepts it";
}

TEST(AutomationOnLinux, OddStringEndsInWholeUnits)
{
    const std::string source(301, '\xFF');
    for (const UINT count : {301U, 297U}) {  // the second string gets the block of the first
        const BSTR string = SysAllocStringByteLen(source.data(), count);
        const auto* const bytes = reinterpret_cast<const char*>(string);
        EXPECT_EQ(std::memcmp(bytes + SysStringByteLen(string), "\0\0", 3), 0) << "up to the end of a whole unit";
        SysFreeString(string);
    }
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

    SAFEARRAYBOUND square[] = {{0x8000, 0}, {2, 0}};
    SAFEARRAY* const strings = SafeArrayCreate(VT_BSTR, 2, square);
    edge = {0x20000000 / sizeof(BSTR), 0};
    EXPECT_EQ(SafeArrayRedim(strings, &edge), E_OUTOFMEMORY) << "its size has more than 32 bits";
    EXPECT_EQ(SafeArrayDestroy(strings), S_OK);
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

    Foreign noData;
    noData.Array.pvData = nullptr;
    EXPECT_EQ(SafeArrayPtrOfIndex(&noData.Array, &index, &element), E_INVALIDARG);
    EXPECT_THROW(Convert::SafeArrayToVectLong(&noData.Array, numbers), _com_error);
    EXPECT_EQ(noData.Array.cLocks, 0U);

    Foreign noDimension;
    noDimension.Array.cDims = 0;
    EXPECT_EQ(Convert::SafeArrayToVectLong(&noDimension.Array, numbers), E_INVALIDARG);
    EXPECT_EQ(SafeArrayCopy(&noDimension.Array, &copy), E_INVALIDARG);

    Foreign narrow;  // elements are read with their own width
    narrow.Array.cbElements = 1;
    narrow.Array.rgsabound[0] = {13, 0};
    EXPECT_EQ(Convert::SafeArrayToVectLong(&narrow.Array, numbers), S_OK);
    EXPECT_EQ(numbers.size(), 13U);

    Foreign huge;
    huge.Array.cbElements = 0xFFFFFFFF;
    huge.Array.rgsabound[0] = {0xFFFFFFFF, 0};
    EXPECT_EQ(SafeArrayCopy(&huge.Array, &copy), E_OUTOFMEMORY);
    EXPECT_EQ(SafeArrayDestroyData(&huge.Array), E_UNEXPECTED);

    Foreign mislabelled;  // strings whose width is not a pointer's are not followed
    mislabelled.Array.fFeatures |= FADF_BSTR;
    mislabelled.Array.cbElements = 2;
    EXPECT_EQ(SafeArrayPutElement(&mislabelled.Array, &index, nullptr), E_INVALIDARG);
    EXPECT_EQ(SafeArrayDestroy(&mislabelled.Array), S_OK);
    EXPECT_EQ(copy, nullptr);
}

}  // namespace
