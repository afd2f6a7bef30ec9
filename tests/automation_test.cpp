// Names of variant types, and lists converted to safe arrays and back.
#include "tessmaru/automation.h"
#include "system.h"
#include "testkit/safe_array.h"
#include "testkit/text.h"

#include <gtest/gtest.h>

#include <functional>
#include <map>
#include <numeric>

namespace {

using namespace utility::literals;

using testkit::MakeSafeArray;
using testkit::Narrow;
using testkit::SafeArray;
using testkit::Wide;
using utility::getSafeArrayCount;
using utility::wstring;
namespace Convert = utility::CCOMUtility;

TEST(VariantTypes, EveryCode)
{
    const std::map<int, std::string> names = {{0, "EMPTY"},       {1, "NULL"},         {2, "I2"},
                                              {3, "I4"},          {4, "R4"},           {5, "R8"},
                                              {6, "CY"},          {7, "DATE"},         {8, "BSTR"},
                                              {9, "DISPATCH"},    {10, "ERROR"},       {11, "BOOL"},
                                              {12, "VARIANT"},    {13, "UNKNOWN"},     {14, "DECIMAL"},
                                              {16, "I1"},         {17, "UI1"},         {18, "UI2"},
                                              {19, "UI4"},        {20, "I8"},          {21, "UI8"},
                                              {22, "INT"},        {23, "UINT"},        {24, "VOID"},
                                              {25, "HRESULT"},    {26, "PTR"},         {27, "SAFEARRAY"},
                                              {28, "CARRAY"},     {29, "USERDEFINED"}, {30, "LPSTR"},
                                              {31, "LPWSTR"},     {36, "RECORD"},      {64, "FILETIME"},
                                              {65, "BLOB"},       {66, "STREAM"},      {67, "STORAGE"},
                                              {71, "CF"},         {72, "CLSID"},       {0x0FFF, "ILLEGALMASKED"},
                                              {0x1000, "VECTOR"}, {0x4000, "BYREF"},   {0x8000, "RESERVED"}};
    for (int code = 0; code <= 0xFFFF; ++code) {
        const int base = code & ~0x2000;
        const auto found = names.find(base);
        char text[64];
        if (code == 0xFFFF)
            std::snprintf(text, sizeof text, "VT_ILLEGAL");
        else if (found != names.end())
            std::snprintf(text, sizeof text, "%sVT_%s", base == code ? "" : "Array: ", found->second.c_str());
        else
            std::snprintf(text, sizeof text, "Unknown code %d / 0x%08X", base, static_cast<unsigned>(base));
        ASSERT_EQ(Narrow(utility::getVtTypeAsString(static_cast<unsigned short>(code))), text) << code;

        const std::map<int, int> wider = {{16, 2}, {17, 2}, {18, 3}, {19, 5}};
        const auto mapped = wider.find(code);
        ASSERT_EQ(utility::getVtTypeAsAutomationType(static_cast<unsigned short>(code)),
                  mapped != wider.end() ? mapped->second : code);
    }
}

HRESULT Thrown(const std::function<void()>& call)
{
    try {
        call();
    } catch (const _com_error& failure) {
        EXPECT_EQ(failure.ErrorInfo(), nullptr);
        return failure.Error();
    }
    return S_OK;
}

std::vector<wstring> Strings(const SafeArray& array)
{
    std::vector<wstring> strings{Wide("gone")};
    EXPECT_EQ(Convert::SafeArrayToVectStr(array.get(), strings), S_OK);
    EXPECT_EQ(array->cLocks, 0U);
    return strings;
}

TEST(SafeArrayCount, CountsADimension)
{
    const SafeArray array = MakeSafeArray(VT_I4, {{3, -7}, {0, 5}, {4, 1}});
    EXPECT_EQ(getSafeArrayCount(array.get(), 1), 3);
    EXPECT_EQ(getSafeArrayCount(array.get(), 2), 0);
    EXPECT_EQ(getSafeArrayCount(array.get(), 3), 4);
    EXPECT_EQ(Thrown([&] { getSafeArrayCount(array.get(), 4); }), E_INVALIDARG);
    EXPECT_EQ(Thrown([&] { getSafeArrayCount(array.get(), 0xFFFFFFFF); }), E_INVALIDARG);
    EXPECT_EQ(Thrown([&] { getSafeArrayCount(array.get(), 0); }), DISP_E_BADINDEX);
    EXPECT_EQ(Thrown([] { getSafeArrayCount(nullptr, 1); }), E_INVALIDARG);
}

TEST(SafeArrayConversions, StringsInAndOut)
{
    SAFEARRAY* made = nullptr;
    ASSERT_EQ(Convert::VectStrToSafeArray({Wide("one"), wstring(), wstring(u"a\0b"_w, 3), wstring(1000, u'x')}, &made),
              S_OK);
    const SafeArray array(made);
    VARTYPE type = 0;
    EXPECT_EQ(SafeArrayGetVartype(made, &type), S_OK);
    EXPECT_EQ(type, VT_BSTR);
    EXPECT_EQ(made->cLocks, 0U);
    const BSTR* const slots = static_cast<const BSTR*>(made->pvData);
    EXPECT_NE(slots[1], nullptr) << "an empty text is an empty string";
    EXPECT_EQ(SysStringLen(slots[2]), 1U);
    EXPECT_EQ(Strings(array), std::vector<wstring>({Wide("one"), wstring(), Wide("a"), wstring(1000, u'x')}));
}

TEST(SafeArrayConversions, StringsWithZerosAndNullStrings)
{
    const SafeArray array = MakeSafeArray(VT_BSTR, {{2, 0}});
    static_cast<BSTR*>(array->pvData)[0] = SysAllocStringLen(platform::Wide(u"a\0b"_w), 3);
    EXPECT_EQ(Strings(array), std::vector<wstring>({Wide("a"), wstring()})) << "cut at a zero; a null string is empty";
}

TEST(SafeArrayConversions, NumbersInAndOut)
{
    std::vector<LONG> numbers(100000);
    std::iota(numbers.begin(), numbers.end(), LONG{-50000});
    SAFEARRAY* made = nullptr;
    ASSERT_EQ(Convert::VectLongToSafeArray(numbers, &made), S_OK);
    const SafeArray array(made);
    EXPECT_EQ(getSafeArrayCount(made, 1), 100000);
    std::vector<LONG> back;
    ASSERT_EQ(Convert::SafeArrayToVectLong(made, back), S_OK);
    EXPECT_EQ(back, numbers);
    EXPECT_EQ(made->cLocks, 0U);
}

TEST(SafeArrayConversions, VariantsInAndOut)
{
    SAFEARRAY* inner = nullptr;
    ASSERT_EQ(Convert::VectStrToSafeArray({Wide("nested")}, &inner), S_OK);
    VARIANT holder{};
    holder.vt = VT_ARRAY | VT_BSTR;
    holder.parray = inner;
    const std::vector<_variant_t> variants{_variant_t(), _variant_t(platform::Wide(u"text"_w)), _variant_t(2.5),
                                           _variant_t(holder, false)};
    SAFEARRAY* made = nullptr;
    ASSERT_EQ(Convert::VectVariantToSafeArray(variants, &made), S_OK);
    std::vector<_variant_t> back(1);
    ASSERT_EQ(Convert::SafeArrayToVariant(made, back), S_OK);
    EXPECT_EQ(SafeArrayDestroy(made), S_OK) << "the copies are independent";
    ASSERT_EQ(back.size(), 4U);
    EXPECT_EQ(back[0].vt, VT_EMPTY);
    EXPECT_EQ(SysStringLen(back[1].bstrVal), 4U);
    EXPECT_NE(back[1].bstrVal, variants[1].bstrVal);
    EXPECT_EQ(back[2].dblVal, 2.5);
    EXPECT_NE(back[3].parray, inner);
    std::vector<wstring> strings;
    EXPECT_EQ(Convert::SafeArrayToVectStr(back[3].parray, strings), S_OK);
    EXPECT_EQ(strings, std::vector<wstring>{Wide("nested")});
}

TEST(SafeArrayConversions, NoElements)
{
    SAFEARRAY* made = nullptr;
    ASSERT_EQ(Convert::VectStrToSafeArray({}, &made), S_OK);
    const SafeArray array(made);
    LONG bound = 7;
    EXPECT_EQ(SafeArrayGetLBound(made, 1, &bound), S_OK);
    EXPECT_EQ(bound, 0);
    EXPECT_EQ(getSafeArrayCount(made, 1), 0);
    EXPECT_TRUE(Strings(array).empty());
    std::vector<LONG> numbers{1};
    EXPECT_EQ(Convert::SafeArrayToVectLong(MakeSafeArray(VT_I4, {{0, 0}}).get(), numbers), S_OK);
    EXPECT_TRUE(numbers.empty());
}

TEST(SafeArrayConversions, NewArrayReplacesTheOldOne)
{
    SAFEARRAY* made = nullptr;
    ASSERT_EQ(Convert::VectLongToSafeArray({1, 2, 3}, &made), S_OK);
    ASSERT_EQ(Convert::VectStrToSafeArray({Wide("x")}, &made), S_OK);
    EXPECT_EQ(getSafeArrayCount(made, 1), 1);
    SAFEARRAY* const locked = made;
    ASSERT_EQ(SafeArrayLock(made), S_OK);
    EXPECT_EQ(Convert::VectLongToSafeArray({1}, &made), DISP_E_ARRAYISLOCKED);
    EXPECT_EQ(made, locked);
    ASSERT_EQ(SafeArrayUnlock(made), S_OK);
    EXPECT_EQ(SafeArrayDestroy(made), S_OK);
}

TEST(SafeArrayConversions, VariantThatCannotBeCopied)
{
    std::vector<_variant_t> variants(3);
    variants[1].vt = 15;
    SAFEARRAY* made = nullptr;
    EXPECT_EQ(Convert::VectVariantToSafeArray(variants, &made), DISP_E_BADVARTYPE);
    EXPECT_EQ(made, nullptr);
    variants[1].vt = VT_EMPTY;

    const SafeArray array = MakeSafeArray(VT_VARIANT, {{3, 0}});
    static_cast<VARIANT*>(array->pvData)[2].vt = 15;
    EXPECT_EQ(Thrown([&] { Convert::SafeArrayToVariant(array.get(), variants); }), DISP_E_BADVARTYPE);
    EXPECT_TRUE(variants.empty());
    EXPECT_EQ(array->cLocks, 0U);
    static_cast<VARIANT*>(array->pvData)[2].vt = VT_EMPTY;
}

TEST(SafeArrayConversions, NullAndSeveralDimensionsAndTooManyLocksAreRefused)
{
    std::vector<LONG> numbers{1};
    EXPECT_EQ(Convert::SafeArrayToVectLong(nullptr, numbers), E_INVALIDARG);
    EXPECT_TRUE(numbers.empty());
    std::vector<wstring> strings{Wide("x")};
    EXPECT_EQ(Convert::SafeArrayToVectStr(MakeSafeArray(VT_BSTR, {{1, 0}, {1, 0}}).get(), strings), E_INVALIDARG);
    EXPECT_TRUE(strings.empty());
    std::vector<_variant_t> variants(1);
    EXPECT_EQ(Convert::SafeArrayToVariant(nullptr, variants), E_INVALIDARG);
    EXPECT_TRUE(variants.empty());
    const SafeArray locked = MakeSafeArray(VT_I4, {{1, 0}});
    locked->cLocks = 0xFFFF;
    EXPECT_EQ(Thrown([&] { Convert::SafeArrayToVectLong(locked.get(), numbers); }), E_UNEXPECTED);
    locked->cLocks = 0;
}

TEST(SafeArrayConversions, StartAtIndexZero)
{
    const SafeArray above = MakeSafeArray(VT_I4, {{3, 1}});
    std::vector<LONG> numbers{1};
    EXPECT_EQ(Thrown([&] { Convert::SafeArrayToVectLong(above.get(), numbers); }), DISP_E_BADINDEX);
    EXPECT_TRUE(numbers.empty());
    EXPECT_EQ(above->cLocks, 0U);

    const SafeArray below = MakeSafeArray(VT_I4, {{5, -2}});
    for (LONG i = 0; i < 5; ++i)
        static_cast<LONG*>(below->pvData)[i] = i - 2;
    EXPECT_EQ(Convert::SafeArrayToVectLong(below.get(), numbers), S_OK);
    EXPECT_EQ(numbers, std::vector<LONG>({0, 1, 2}));
    EXPECT_TRUE(Strings(MakeSafeArray(VT_BSTR, {{3, -3}})).empty());
}

}  // namespace
