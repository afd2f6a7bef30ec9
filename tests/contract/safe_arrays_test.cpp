// Contract of safe arrays: dimensions, locks, elements and the ownership of elements.
#include "system.h"
#include "tessmaru/text.h"
#include "testkit/counted_object.h"
#include "testkit/safe_array.h"

#include <gtest/gtest.h>

#include <cstring>
#include <memory>
#include <vector>

namespace {

using namespace utility::literals;

using testkit::MakeSafeArray;
using testkit::SafeArray;

SafeArray CopyOf(const SafeArray& array)
{
    SAFEARRAY* copy = nullptr;
    EXPECT_EQ(SafeArrayCopy(array.get(), &copy), S_OK);
    return SafeArray(copy);
}

TEST(SafeArrays, TypesAndTheirFeatures)
{
    const struct {
        std::vector<VARTYPE> Types;
        std::size_t Bytes;
        int Features;
    } rows[] = {{{VT_I1, VT_UI1}, 1, 0x80},
                {{VT_I2, VT_UI2, VT_BOOL}, 2, 0x80},
                {{VT_I4, VT_UI4, VT_INT, VT_UINT, VT_ERROR, VT_R4}, 4, 0x80},
                {{VT_R8, VT_I8, VT_UI8, VT_CY, VT_DATE}, 8, 0x80},
                {{VT_DECIMAL}, 16, 0x80},
                {{VT_BSTR}, sizeof(BSTR), 0x180},
                {{VT_VARIANT}, sizeof(VARIANT), 0x880},
                {{VT_UNKNOWN}, sizeof(void*), 0x240},
                {{VT_DISPATCH}, sizeof(void*), 0x440}};
    for (const auto& row : rows) {
        for (const VARTYPE made : row.Types) {
            const SafeArray array = MakeSafeArray(made, {{2, 0}});
            ASSERT_NE(array, nullptr) << made;
            VARTYPE type = 0;
            EXPECT_EQ(SafeArrayGetVartype(array.get(), &type), S_OK);
            EXPECT_EQ(type, made);
            EXPECT_EQ(SafeArrayGetElemsize(array.get()), row.Bytes) << made;
            EXPECT_EQ(array->fFeatures, row.Features) << made;
            const std::vector<char> zero(2 * row.Bytes);
            EXPECT_EQ(std::memcmp(array->pvData, zero.data(), zero.size()), 0) << made;
            EXPECT_EQ(CopyOf(array)->fFeatures, row.Features) << made;
        }
    }
    for (const VARTYPE type : {VARTYPE(VT_EMPTY), VARTYPE(VT_NULL), VARTYPE(15), VARTYPE(VT_VOID), VARTYPE(VT_CLSID),
                               VARTYPE(VT_BYREF | VT_I4), VARTYPE(VT_ARRAY | VT_I4)})
        EXPECT_EQ(MakeSafeArray(type, {{2, 0}}), nullptr) << type;
}

TEST(SafeArrays, AreLaidOutFromTheFirstDimension)
{
    const SafeArray array = MakeSafeArray(VT_I4, {{2, 5}, {3, -1}});
    EXPECT_EQ(SafeArrayGetDim(array.get()), 2U);
    EXPECT_EQ(array->rgsabound[0].cElements, 3U) << "the last dimension comes first";
    EXPECT_EQ(array->rgsabound[1].lLbound, 5);
    auto* const data = static_cast<LONG*>(array->pvData);
    LONG expected = 0;
    for (LONG second = -1; second <= 1; ++second) {
        for (LONG first = 5; first <= 6; ++first) {
            LONG indices[] = {first, second};
            void* element = nullptr;
            ASSERT_EQ(SafeArrayPtrOfIndex(array.get(), indices, &element), S_OK);
            EXPECT_EQ(element, data + expected);
            ++expected;
        }
    }
    for (const auto& [first, second] : {std::pair<LONG, LONG>{4, 0}, {7, 0}, {5, -2}, {5, 2}}) {
        LONG indices[] = {first, second};
        LONG value = 7;
        void* element = &value;
        EXPECT_EQ(SafeArrayPtrOfIndex(array.get(), indices, &element), DISP_E_BADINDEX);
        EXPECT_EQ(element, &value);
        EXPECT_EQ(SafeArrayGetElement(array.get(), indices, &value), DISP_E_BADINDEX);
        EXPECT_EQ(SafeArrayPutElement(array.get(), indices, &value), DISP_E_BADINDEX);
    }
    EXPECT_EQ(array->cLocks, 0U);
}

TEST(SafeArrays, BoundsCountFromOne)
{
    const SafeArray array = MakeSafeArray(VT_I4, {{2, 5}, {0, -1}});
    LONG bound = 99;
    EXPECT_EQ(SafeArrayGetLBound(array.get(), 1, &bound), S_OK);
    EXPECT_EQ(bound, 5);
    EXPECT_EQ(SafeArrayGetUBound(array.get(), 1, &bound), S_OK);
    EXPECT_EQ(bound, 6);
    EXPECT_EQ(SafeArrayGetUBound(array.get(), 2, &bound), S_OK);
    EXPECT_EQ(bound, -2);
    for (const UINT dimension : {0U, 3U, 0xFFFFFFFFU}) {
        EXPECT_EQ(SafeArrayGetLBound(array.get(), dimension, &bound), DISP_E_BADINDEX);
        EXPECT_EQ(SafeArrayGetUBound(array.get(), dimension, &bound), DISP_E_BADINDEX);
    }
    EXPECT_EQ(bound, -2);
}

TEST(SafeArrays, ImpossibleArraysAreRefused)
{
    SAFEARRAYBOUND bound{1, 0};
    EXPECT_EQ(SafeArrayCreate(VT_I4, 0, &bound), nullptr);
    EXPECT_EQ(SafeArrayCreate(VT_I4, 1, nullptr), nullptr);
    std::vector<SAFEARRAYBOUND> many(65536, SAFEARRAYBOUND{1, 0});
    EXPECT_EQ(SafeArrayCreate(VT_I4, 65536, many.data()), nullptr);
    EXPECT_NE(MakeSafeArray(VT_I4, std::vector<SAFEARRAYBOUND>(65535, {1, 0})), nullptr);
    EXPECT_NE(MakeSafeArray(VT_I4, {{0, 0}, {3, 0}}), nullptr) << "no elements";
}

TEST(SafeArrays, NullIsRefused)
{
    LONG bound = 0;
    LONG index = 0;
    void* data = nullptr;
    SAFEARRAYBOUND newBound{1, 0};
    const SafeArray array = MakeSafeArray(VT_I4, {{1, 0}});
    EXPECT_EQ(SafeArrayGetDim(nullptr), 0U);
    EXPECT_EQ(SafeArrayGetElemsize(nullptr), 0U);
    EXPECT_EQ(SafeArrayDestroy(nullptr), S_OK);
    EXPECT_EQ(SafeArrayDestroyDescriptor(nullptr), S_OK);
    for (const HRESULT result :
         {SafeArrayGetLBound(nullptr, 1, &bound), SafeArrayGetLBound(array.get(), 1, nullptr),
          SafeArrayGetUBound(nullptr, 1, &bound), SafeArrayLock(nullptr), SafeArrayUnlock(nullptr),
          SafeArrayAccessData(nullptr, &data), SafeArrayAccessData(array.get(), nullptr),
          SafeArrayUnaccessData(nullptr), SafeArrayPtrOfIndex(nullptr, &index, &data),
          SafeArrayPtrOfIndex(array.get(), nullptr, &data), SafeArrayPtrOfIndex(array.get(), &index, nullptr),
          SafeArrayGetElement(array.get(), &index, nullptr), SafeArrayDestroyData(nullptr),
          SafeArrayCopy(array.get(), nullptr), SafeArrayRedim(nullptr, &newBound),
          SafeArrayRedim(array.get(), nullptr)})
        EXPECT_EQ(result, E_INVALIDARG);
    SAFEARRAY* copy = array.get();
    EXPECT_EQ(SafeArrayCopy(nullptr, &copy), S_OK);
    EXPECT_EQ(copy, nullptr);
    EXPECT_EQ(array->cLocks, 0U);
}

TEST(SafeArrays, LocksCountAndHold)
{
    const SafeArray array = MakeSafeArray(VT_I4, {{2, 0}});
    SAFEARRAYBOUND bound{3, 0};
    ASSERT_EQ(SafeArrayLock(array.get()), S_OK);
    EXPECT_EQ(array->cLocks, 1U);
    EXPECT_EQ(SafeArrayDestroy(array.get()), DISP_E_ARRAYISLOCKED);
    EXPECT_EQ(SafeArrayDestroyData(array.get()), DISP_E_ARRAYISLOCKED);
    EXPECT_EQ(SafeArrayDestroyDescriptor(array.get()), DISP_E_ARRAYISLOCKED);
    EXPECT_EQ(SafeArrayRedim(array.get(), &bound), DISP_E_ARRAYISLOCKED);
    EXPECT_EQ(CopyOf(array)->cLocks, 0U);
    EXPECT_EQ(SafeArrayUnlock(array.get()), S_OK);
    EXPECT_EQ(SafeArrayUnlock(array.get()), E_UNEXPECTED);
    for (int i = 0; i < 0xFFFF; ++i)
        ASSERT_EQ(SafeArrayLock(array.get()), S_OK) << i;
    void* data = &bound;
    EXPECT_EQ(SafeArrayLock(array.get()), E_UNEXPECTED);
    EXPECT_EQ(SafeArrayAccessData(array.get(), &data), E_UNEXPECTED);
    EXPECT_EQ(array->cLocks, 0xFFFFU);
    for (int i = 0; i < 0xFFFF; ++i)
        ASSERT_EQ(SafeArrayUnlock(array.get()), S_OK) << i;
    EXPECT_EQ(SafeArrayUnlock(array.get()), E_UNEXPECTED);
}

TEST(SafeArrays, WithoutElementsCanAlwaysBeDestroyed)
{
    for (const VARTYPE type : {VT_UI1, VT_BSTR, VT_VARIANT}) {
        SafeArray array = MakeSafeArray(type, {{0, 0}, {3, 0}});
        ASSERT_NE(array, nullptr);
        SAFEARRAYBOUND bound{0x7FFFFFFF, 0};
        EXPECT_EQ(SafeArrayRedim(array.get(), &bound), S_OK);
        EXPECT_EQ(CopyOf(array)->rgsabound[0].cElements, 0x7FFFFFFFU);
        EXPECT_EQ(SafeArrayDestroy(array.release()), S_OK);
    }
}

TEST(SafeArrays, CopyNeedsElementsOfSomeSize)
{
    const SafeArray array = MakeSafeArray(VT_UI1, {{2, 0}});
    SAFEARRAY* copy = array.get();
    array->cbElements = 0;
    EXPECT_EQ(SafeArrayCopy(array.get(), &copy), E_INVALIDARG);
    EXPECT_EQ(copy, nullptr);
    array->cbElements = 1;
}

TEST(SafeArrays, StringsAreCopiedInAndOut)
{
    const SafeArray array = MakeSafeArray(VT_BSTR, {{2, 0}});
    auto* const slots = static_cast<BSTR*>(array->pvData);
    const BSTR given = SysAllocStringLen(platform::Wide(u"a\0b"_w), 3);
    LONG index = 0;
    for (int i = 0; i < 2; ++i)  // the second call releases the string of the first
        ASSERT_EQ(SafeArrayPutElement(array.get(), &index, given), S_OK);
    EXPECT_NE(slots[0], given);
    EXPECT_EQ(SysStringLen(slots[0]), 3U);
    SysFreeString(given);
    BSTR got = nullptr;
    ASSERT_EQ(SafeArrayGetElement(array.get(), &index, &got), S_OK);
    EXPECT_NE(got, slots[0]);
    EXPECT_EQ(SysStringLen(got), 3U);
    SysFreeString(got);
    index = 1;
    ASSERT_EQ(SafeArrayGetElement(array.get(), &index, &got), S_OK);
    EXPECT_EQ(got, nullptr);
    const SafeArray copy = CopyOf(array);
    EXPECT_NE(static_cast<BSTR*>(copy->pvData)[0], slots[0]);
    EXPECT_EQ(SysStringLen(static_cast<BSTR*>(copy->pvData)[0]), 3U);
    EXPECT_EQ(static_cast<BSTR*>(copy->pvData)[1], nullptr);
    index = 0;
    EXPECT_EQ(SafeArrayPutElement(array.get(), &index, nullptr), S_OK);
}

TEST(SafeArrays, VariantsAreCopiedDeeply)
{
    const SafeArray array = MakeSafeArray(VT_VARIANT, {{1, 0}});
    auto& slot = *static_cast<VARIANT*>(array->pvData);
    _variant_t given(platform::Wide(u"text"_w));
    LONG index = 0;
    ASSERT_EQ(SafeArrayPutElement(array.get(), &index, &given), S_OK);
    EXPECT_NE(slot.bstrVal, given.bstrVal);
    VARIANT bad{};
    bad.vt = 15;
    EXPECT_EQ(SafeArrayPutElement(array.get(), &index, &bad), DISP_E_BADVARTYPE);
    EXPECT_EQ(slot.vt, VT_BSTR) << "the old element stays";
    VARIANT got;
    std::memset(&got, 0x55, sizeof got);
    ASSERT_EQ(SafeArrayGetElement(array.get(), &index, &got), S_OK);
    EXPECT_EQ(got.vt, VT_BSTR);
    EXPECT_NE(got.bstrVal, slot.bstrVal);
    VariantClear(&got);

    const SafeArray outer = MakeSafeArray(VT_VARIANT, {{1, 0}});
    VARIANT nested{};
    nested.vt = VT_ARRAY | VT_VARIANT;
    nested.parray = array.get();
    ASSERT_EQ(SafeArrayPutElement(outer.get(), &index, &nested), S_OK);
    const SafeArray copy = CopyOf(outer);
    const SAFEARRAY* const inner = static_cast<VARIANT*>(copy->pvData)->parray;
    EXPECT_NE(inner, static_cast<VARIANT*>(outer->pvData)->parray);
    EXPECT_EQ(SysStringLen(static_cast<VARIANT*>(inner->pvData)->bstrVal), 4U);
}

TEST(SafeArrays, ObjectsAreCounted)
{
    testkit::CountedObject<IUnknown> object;
    {
        const SafeArray array = MakeSafeArray(VT_UNKNOWN, {{3, 0}});
        for (LONG index : {0, 1, 2, 2})
            ASSERT_EQ(SafeArrayPutElement(array.get(), &index, static_cast<IUnknown*>(&object)), S_OK);
        EXPECT_EQ(object.References, 4U);
        IUnknown* got = nullptr;
        LONG index = 0;
        ASSERT_EQ(SafeArrayGetElement(array.get(), &index, &got), S_OK);
        EXPECT_EQ(got, &object);
        EXPECT_EQ(object.References, 5U);
        got->Release();
        CopyOf(array);
        EXPECT_EQ(object.References, 4U);
        SAFEARRAYBOUND fewer{1, 0};
        ASSERT_EQ(SafeArrayRedim(array.get(), &fewer), S_OK);
        EXPECT_EQ(object.References, 2U);
    }
    EXPECT_EQ(object.References, 1U);
}

TEST(SafeArrays, RedimChangesTheLastDimension)
{
    const SafeArray array = MakeSafeArray(VT_BSTR, {{2, 0}, {2, 0}});
    for (LONG i = 0; i < 4; ++i)
        static_cast<BSTR*>(array->pvData)[i] = SysAllocStringLen(nullptr, static_cast<UINT>(i + 1));
    SAFEARRAYBOUND bound{3, -4};
    ASSERT_EQ(SafeArrayRedim(array.get(), &bound), S_OK);
    LONG upper = 0;
    EXPECT_EQ(SafeArrayGetUBound(array.get(), 2, &upper), S_OK);
    EXPECT_EQ(upper, -2);
    for (LONG i = 0; i < 6; ++i)
        EXPECT_EQ(SysStringLen(static_cast<BSTR*>(array->pvData)[i]), i < 4 ? static_cast<UINT>(i + 1) : 0U) << i;
    bound = {1, 0};
    ASSERT_EQ(SafeArrayRedim(array.get(), &bound), S_OK);
    EXPECT_EQ(SysStringLen(static_cast<BSTR*>(array->pvData)[1]), 2U);
    bound = {0, 0};
    ASSERT_EQ(SafeArrayRedim(array.get(), &bound), S_OK);
    LONG indices[] = {0, 0};
    void* element = nullptr;
    EXPECT_EQ(SafeArrayPtrOfIndex(array.get(), indices, &element), DISP_E_BADINDEX);
}

TEST(SafeArrays, DataCanBeDestroyedBeforeTheDescriptor)
{
    const SafeArray array = MakeSafeArray(VT_BSTR, {{1, 0}});
    static_cast<BSTR*>(array->pvData)[0] = SysAllocStringLen(nullptr, 1);
    EXPECT_EQ(SafeArrayDestroyData(array.get()), S_OK);
    EXPECT_EQ(array->pvData, nullptr);
}

}  // namespace
