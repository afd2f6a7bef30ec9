// Contract of automation strings and variants: lengths, ownership, and results of failures.
#include "system.h"
#include "tessmaru/text.h"
#include "testkit/counted_object.h"
#include "testkit/text.h"

#include <gtest/gtest.h>

#include <cstring>

namespace {

using namespace utility::literals;

using CountedObject = testkit::CountedObject<IUnknown>;
using testkit::Wide;

BSTR MakeString(const utility::wstring& text)
{
    return SysAllocStringLen(platform::Wide(text.c_str()), static_cast<UINT>(text.size()));
}

utility::wstring TextOf(BSTR string)
{
    return {reinterpret_cast<const unsigned short*>(string), SysStringLen(string)};
}

VARIANT OfType(int type)
{
    VARIANT variant{};
    variant.vt = static_cast<VARTYPE>(type);
    return variant;
}

TEST(AutomationStrings, HaveLengths)
{
    const utility::wstring inner(u"a\0b"_w, 3);
    const BSTR string = MakeString(inner);
    EXPECT_EQ(TextOf(string), inner);
    EXPECT_EQ(SysStringByteLen(string), 6U);
    EXPECT_EQ(string[3], 0);
    const BSTR cut = SysAllocString(string);
    EXPECT_EQ(SysStringLen(cut), 1U);
    SysFreeString(cut);
    SysFreeString(string);

    const BSTR odd = SysAllocStringByteLen("abc", 3);
    EXPECT_EQ(SysStringByteLen(odd), 3U);
    EXPECT_EQ(SysStringLen(odd), 1U);
    EXPECT_EQ(std::memcmp(odd, "abc\0\0", 5), 0);
    SysFreeString(odd);

    const BSTR empty = SysAllocString(platform::Wide(u""_w));
    EXPECT_NE(empty, nullptr);
    EXPECT_EQ(SysStringLen(empty), 0U);
    SysFreeString(empty);
}

TEST(AutomationStrings, NullAndTooLong)
{
    EXPECT_EQ(SysAllocString(nullptr), nullptr);
    EXPECT_EQ(SysStringLen(nullptr), 0U);
    EXPECT_EQ(SysStringByteLen(nullptr), 0U);
    SysFreeString(nullptr);
    EXPECT_EQ(SysAllocStringLen(platform::Wide(u""_w), 0x7FFFFFFF), nullptr);
    EXPECT_EQ(SysAllocStringLen(platform::Wide(u""_w), 0x80000000), nullptr);
    const BSTR blank = SysAllocStringLen(nullptr, 3);
    EXPECT_EQ(SysStringLen(blank), 3U);
    EXPECT_EQ(blank[3], 0);
    SysFreeString(blank);
}

TEST(AutomationStrings, CanBeReplaced)
{
    BSTR string = MakeString(Wide("hello"));
    EXPECT_TRUE(SysReAllocStringLen(&string, string + 1, 3)) << "with a part of itself";
    EXPECT_EQ(TextOf(string), Wide("ell"));
    EXPECT_TRUE(SysReAllocStringLen(&string, nullptr, 2)) << "without a source the content stays";
    EXPECT_EQ(TextOf(string), Wide("el"));
    EXPECT_TRUE(SysReAllocString(&string, platform::Wide(u"other"_w)));
    EXPECT_EQ(TextOf(string), Wide("other"));
    EXPECT_TRUE(SysReAllocString(&string, nullptr));
    EXPECT_EQ(string, nullptr);
}

/// Whether variants of this type are valid on every platform.
bool IsValid(int type)
{
    const int base = type & 0xFFF;
    const int flags = type & 0xF000;
    return (flags & ~(VT_ARRAY | VT_BYREF)) == 0 &&
           ((base <= VT_DECIMAL && (flags == 0 || base > VT_NULL)) || (base >= VT_I1 && base <= VT_UINT));
}

TEST(Variants, ValidTypes)
{
    for (int type = 0; type <= 0xFFFF; ++type) {
        const int base = type & 0xFFF;
        if (base == VT_RECORD || base == VT_CLSID)
            continue;
        VARIANT variant = OfType(type);
        VARIANT copy = OfType(VT_I4);
        const HRESULT expected = IsValid(type) ? S_OK : DISP_E_BADVARTYPE;
        ASSERT_EQ(VariantCopy(&copy, &variant), expected) << type;
        ASSERT_EQ(copy.vt, IsValid(type) ? type : VT_I4) << type;
        ASSERT_EQ(VariantClear(&variant), expected) << type;
        ASSERT_EQ(variant.vt, IsValid(type) ? VT_EMPTY : type) << type;
        VariantClear(&copy);
    }
}

TEST(Variants, StringsAreCopiedWithTheirBytes)
{
    VARIANT source = OfType(VT_BSTR);
    source.bstrVal = MakeString({u"a\0b"_w, 3});
    VARIANT copy;
    VariantInit(&copy);
    ASSERT_EQ(VariantCopy(&copy, &source), S_OK);
    EXPECT_NE(copy.bstrVal, source.bstrVal);
    EXPECT_EQ(TextOf(copy.bstrVal), TextOf(source.bstrVal));
    ASSERT_EQ(VariantCopy(&copy, &copy), S_OK) << "onto itself";
    EXPECT_EQ(SysStringLen(copy.bstrVal), 3U);
    VariantClear(&source);

    source = OfType(VT_BSTR);  // a null string
    ASSERT_EQ(VariantCopy(&copy, &source), S_OK);
    EXPECT_EQ(SysStringLen(copy.bstrVal), 0U);
    EXPECT_EQ(VariantClear(&copy), S_OK);
}

TEST(Variants, ReferencesAreNotFollowed)
{
    BSTR string = MakeString(Wide("referenced"));
    VARIANT source = OfType(VT_BSTR | VT_BYREF);
    source.pbstrVal = &string;
    VARIANT copy;
    VariantInit(&copy);
    ASSERT_EQ(VariantCopy(&copy, &source), S_OK);
    EXPECT_EQ(copy.pbstrVal, &string);
    EXPECT_EQ(VariantClear(&copy), S_OK);
    EXPECT_EQ(VariantClear(&source), S_OK);
    EXPECT_EQ(TextOf(string), Wide("referenced"));
    SysFreeString(string);
}

TEST(Variants, ObjectsAreCounted)
{
    for (const int type : {VT_UNKNOWN, VT_DISPATCH}) {
        CountedObject object;
        VARIANT source = OfType(type);
        source.punkVal = &object;
        VARIANT copy;
        VariantInit(&copy);
        ASSERT_EQ(VariantCopy(&copy, &source), S_OK);
        EXPECT_EQ(object.References, 2U) << type;
        EXPECT_EQ(VariantClear(&copy), S_OK);
        EXPECT_EQ(object.References, 1U) << type;
        source.punkVal = nullptr;
        EXPECT_EQ(VariantCopy(&copy, &source), S_OK);
        EXPECT_EQ(VariantClear(&source), S_OK);
    }
}

TEST(Variants, LockedArrayIsKept)
{
    VARIANT held = OfType(VT_ARRAY | VT_I4);
    held.parray = SafeArrayCreateVector(VT_I4, 0, 2);
    SAFEARRAY* const array = held.parray;
    ASSERT_EQ(SafeArrayLock(array), S_OK);
    EXPECT_EQ(VariantClear(&held), DISP_E_ARRAYISLOCKED);
    held.vt = VT_ARRAY | VT_I4;  // the contract allows the old type or VT_EMPTY
    ASSERT_EQ(SafeArrayUnlock(array), S_OK);

    VARIANT copy;
    VariantInit(&copy);
    ASSERT_EQ(VariantCopy(&copy, &held), S_OK);
    EXPECT_NE(copy.parray, array);
    EXPECT_EQ(VariantClear(&copy), S_OK);
    EXPECT_EQ(VariantClear(&held), S_OK);
}

TEST(VariantClass, OwnsWhatItHolds)
{
    CountedObject object;
    {
        const _variant_t first(static_cast<IUnknown*>(&object));
        _variant_t second(first);
        EXPECT_EQ(object.References, 3U);
        second = _variant_t(platform::Wide(u"text"_w));
        EXPECT_EQ(object.References, 2U);
        EXPECT_EQ(TextOf(second.bstrVal), Wide("text"));
        VARIANT held = second.Detach();
        EXPECT_EQ(second.vt, VT_EMPTY);
        second.Attach(held);
        EXPECT_EQ(held.vt, VT_EMPTY);
        EXPECT_EQ(TextOf(second.bstrVal), Wide("text"));
    }
    EXPECT_EQ(object.References, 1U);
    EXPECT_EQ(_variant_t(true).boolVal, VARIANT_TRUE);
    EXPECT_EQ(_variant_t(2.5).vt, VT_R8);
    VARIANT bad = OfType(15);
    EXPECT_THROW(_variant_t{bad}, _com_error);
}

}  // namespace
