// Contract of automation strings and variants: lengths, ownership, and results of failures.
#include "system.h"
#include "tessmaru/text.h"
#include "testkit/counted_object.h"
#include "testkit/text.h"

#include <gtest/gtest.h>

#include <cstring>
#include <functional>

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
    for (const UINT bytes : {0U, 1U, 2U, 5U, 1000U, 1001U}) {
        const BSTR aligned = SysAllocStringByteLen(nullptr, bytes);
        EXPECT_EQ(reinterpret_cast<std::uintptr_t>(aligned) % alignof(void*), 0U) << bytes;
        SysFreeString(aligned);
    }

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
    VARIANT bad = OfType(15);
    EXPECT_THROW(_variant_t{bad}, _com_error);
}

/// Expects a variant of this type with a value that has these bytes.
template <class Value>
void Expect(const _variant_t& made, int type, Value value)
{
    EXPECT_EQ(made.vt, type);
    EXPECT_EQ(std::memcmp(&made.byref, &value, sizeof value), 0) << type;
}

/// A variant made from a first value and assigned a second one.
template <class First, class Second>
_variant_t Assigned(First first, Second second)
{
    _variant_t variant(first);
    variant = second;
    return variant;
}

HRESULT Thrown(const std::function<void()>& call)
{
    try {
        call();
        return S_OK;
    } catch (const _com_error& failure) {
        return failure.Error();
    }
}

TEST(VariantClass, TakesNumbersByTheirTypes)
{
    Expect(SHORT{-5}, VT_I2, SHORT{-5});
    Expect({SHORT{-5}, VT_BOOL}, VT_BOOL, VARIANT_TRUE);
    Expect(LONG{-70000}, VT_I4, LONG{-70000});
    Expect({LONG{-7}, VT_ERROR}, VT_ERROR, LONG{-7});
    Expect({LONG{0x10000}, VT_BOOL}, VT_BOOL, VARIANT_TRUE);
    Expect(0.5F, VT_R4, 0.5F);
    Expect(2.5, VT_R8, 2.5);
    Expect({2.5, VT_DATE}, VT_DATE, 2.5);
    Expect(true, VT_BOOL, VARIANT_TRUE);
    Expect(false, VT_BOOL, VARIANT_FALSE);
    Expect('a', VT_I1, 'a');
    Expect(BYTE{200}, VT_UI1, BYTE{200});
    Expect(USHORT{60000}, VT_UI2, USHORT{60000});
    Expect(ULONG{4000000000}, VT_UI4, ULONG{4000000000});
    Expect(LONGLONG{-1} << 40, VT_I8, LONGLONG{-1} << 40);
    Expect(ULONGLONG{1} << 63, VT_UI8, ULONGLONG{1} << 63);
    CY money{};
    money.int64 = -12345;
    Expect(money, VT_CY, LONGLONG{-12345});
    DECIMAL decimal{};
    decimal.Lo64 = 77;
    Expect(decimal, VT_DECIMAL, ULONGLONG{77});

    const _variant_t error(LONG{1}, VT_ERROR);
    const _variant_t date(1.0, VT_DATE);
    Expect(Assigned(true, SHORT{7}), VT_BOOL, VARIANT_TRUE);
    Expect(Assigned(true, LONG{0}), VT_BOOL, VARIANT_FALSE);
    Expect(Assigned(error, LONG{9}), VT_ERROR, LONG{9});
    Expect(Assigned(date, 9.5), VT_DATE, 9.5);
    Expect(Assigned(date, LONG{9}), VT_I4, LONG{9});
    Expect(Assigned(error, SHORT{9}), VT_I2, SHORT{9});
    Expect(Assigned(error, 9.5), VT_R8, 9.5);
    Expect(Assigned(2.5, BYTE{9}), VT_UI1, BYTE{9});
    EXPECT_EQ(Thrown([] { _variant_t(SHORT{1}, VT_I4); }), E_INVALIDARG);
    EXPECT_EQ(Thrown([] { _variant_t(LONG{1}, VT_I2); }), E_INVALIDARG);
    EXPECT_EQ(Thrown([] { _variant_t(1.0, VT_R4); }), E_INVALIDARG);
}

TEST(VariantClass, TakesTextsAndVariantsByTheirAddress)
{
    const _variant_t text(platform::Wide(u"text"_w));
    EXPECT_EQ(TextOf(text.bstrVal), Wide("text"));
    EXPECT_EQ(_variant_t(static_cast<const OLECHAR*>(nullptr)).bstrVal, nullptr);
    const VARIANT* const pointer = &text;
    for (const _variant_t& copy : {_variant_t(pointer), Assigned(true, pointer), Assigned(true, text.bstrVal)}) {
        EXPECT_EQ(copy.vt, VT_BSTR);
        EXPECT_NE(copy.bstrVal, text.bstrVal);
    }
    const VARIANT* const none = nullptr;
    EXPECT_EQ(Thrown([&] { _variant_t{none}; }), E_POINTER);
    EXPECT_EQ(Thrown([&] { Assigned(true, none); }), E_POINTER);
}

TEST(VariantClass, IsEqualToTheSameTypeAndValue)
{
    CountedObject object;
    const _variant_t text(platform::Wide(u"text"_w));
    _variant_t otherText(text);
    otherText.bstrVal[3] = u'T';
    const _variant_t values[] = {_variant_t(),
                                 SHORT{1},
                                 LONG{1},
                                 LONG{2},
                                 1.0F,
                                 1.0,
                                 {1.0, VT_DATE},
                                 true,
                                 false,
                                 BYTE{1},
                                 'b',
                                 USHORT{1},
                                 ULONG{1},
                                 LONGLONG{1},
                                 ULONGLONG{1},
                                 ULONGLONG{1} << 33,
                                 text,
                                 otherText,
                                 platform::Wide(u"texts"_w),
                                 CY{},
                                 DECIMAL{},
                                 OfType(VT_NULL),
                                 static_cast<IUnknown*>(&object),
                                 OfType(VT_DISPATCH)};
    for (const _variant_t& one : values) {
        for (const _variant_t& other : values) {
            const _variant_t copy(other);
            const VARIANT& plain = copy;
            EXPECT_EQ(one == plain, &one == &other) << one.vt << " " << other.vt;
            EXPECT_EQ(one != &plain, &one != &other) << one.vt << " " << other.vt;
        }
        EXPECT_FALSE(one == static_cast<const VARIANT*>(nullptr));
    }
}

_variant_t Changed(const _variant_t& source, VARTYPE type)
{
    _variant_t variant;
    variant.ChangeType(type, &source);
    return variant;
}

TEST(VariantClass, ChangesTheTypesOfNumbers)
{
    Expect(Changed(2.5, VT_I4), VT_I4, LONG{2});
    Expect(Changed(3.5, VT_I2), VT_I2, SHORT{4});
    Expect(Changed(-2.5, VT_I8), VT_I8, LONGLONG{-2});
    Expect(Changed(127.4, VT_I1), VT_I1, char{127});
    Expect(Changed(ULONGLONG{1} << 63, VT_R8), VT_R8, 9223372036854775808.0);
    Expect(Changed(true, VT_R8), VT_R8, -1.0);
    Expect(Changed(true, VT_UI1), VT_UI1, BYTE{255});
    Expect(Changed(0.1, VT_BOOL), VT_BOOL, VARIANT_TRUE);
    Expect(Changed(_variant_t(), VT_BOOL), VT_BOOL, VARIANT_FALSE);
    Expect(Changed(LONG{2}, VT_DATE), VT_DATE, 2.0);
    _variant_t own(2.5);
    own.ChangeType(VT_UI2);
    Expect(own, VT_UI2, USHORT{2});

    const struct {
        _variant_t Source;
        VARTYPE Type;
    } refused[] = {{128.0, VT_I1}, {-1.0, VT_UI1},       {1e20, VT_I8},
                   {1e300, VT_R4}, {LONG{70000}, VT_I2}, {LONG{3000000}, VT_DATE}};
    for (const auto& row : refused)
        EXPECT_EQ(Thrown([&] { own.ChangeType(row.Type, &row.Source); }), DISP_E_OVERFLOW) << row.Type;
    const _variant_t null(OfType(VT_NULL));
    EXPECT_EQ(Thrown([&] { own.ChangeType(VT_I4, &null); }), DISP_E_TYPEMISMATCH);
    Expect(own, VT_UI2, USHORT{2});
}

}  // namespace
