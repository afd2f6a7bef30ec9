// The names of variant types, and a widely known type for each type that automation clients may not know.
#include "settings/tag_specification.h"
#include "system.h"
#include "tessmaru/automation.h"
#include "tessmaru/text.h"

#include <iterator>

namespace {

using namespace utility::literals;

/// The names of the codes from 0 to 31; code 15 is not assigned.
constexpr const unsigned short* typeNames[] = {
    u"VT_EMPTY"_w,   u"VT_NULL"_w,    u"VT_I2"_w,      u"VT_I4"_w,        u"VT_R4"_w,     u"VT_R8"_w,
    u"VT_CY"_w,      u"VT_DATE"_w,    u"VT_BSTR"_w,    u"VT_DISPATCH"_w,  u"VT_ERROR"_w,  u"VT_BOOL"_w,
    u"VT_VARIANT"_w, u"VT_UNKNOWN"_w, u"VT_DECIMAL"_w, nullptr,           u"VT_I1"_w,     u"VT_UI1"_w,
    u"VT_UI2"_w,     u"VT_UI4"_w,     u"VT_I8"_w,      u"VT_UI8"_w,       u"VT_INT"_w,    u"VT_UINT"_w,
    u"VT_VOID"_w,    u"VT_HRESULT"_w, u"VT_PTR"_w,     u"VT_SAFEARRAY"_w, u"VT_CARRAY"_w, u"VT_USERDEFINED"_w,
    u"VT_LPSTR"_w,   u"VT_LPWSTR"_w,
};

const unsigned short* TypeName(unsigned short type)
{
    if (type < std::size(typeNames))
        return typeNames[type];
    switch (type) {
        case VT_RECORD: return u"VT_RECORD"_w;
        case VT_FILETIME: return u"VT_FILETIME"_w;
        case VT_BLOB: return u"VT_BLOB"_w;
        case VT_STREAM: return u"VT_STREAM"_w;
        case VT_STORAGE: return u"VT_STORAGE"_w;
        case VT_CF: return u"VT_CF"_w;
        case VT_CLSID: return u"VT_CLSID"_w;
        case VT_ILLEGALMASKED: return u"VT_ILLEGALMASKED"_w;
        case VT_VECTOR: return u"VT_VECTOR"_w;
        case VT_BYREF: return u"VT_BYREF"_w;
        case VT_RESERVED: return u"VT_RESERVED"_w;
        default: return nullptr;
    }
}

}  // namespace

utility::wstring utility::getVtTypeAsString(unsigned short type)
{
    // Before VT_ARRAY is removed, which is one of its bits.
    if (type == VT_ILLEGAL)
        return u"VT_ILLEGAL"_w;
    const auto base = static_cast<unsigned short>(type & ~VT_ARRAY);
    const unsigned short* const name = TypeName(base);
    if (name == nullptr) {
        constexpr std::size_t fallbackUnits = 64;
        unsigned short text[fallbackUnits]{};
        _snwprintf(platform::Wide(text), fallbackUnits - 1, platform::Wide(u"Unknown code %d / 0x%08X"_w), base, base);
        return text;
    }
    return base == type ? wstring(name) : u"Array: "_w + wstring(name);
}

unsigned short utility::getVtTypeAsAutomationType(unsigned short type)
{
    switch (type) {
        case VT_I1:
        case VT_UI1: return VT_I2;
        case VT_UI2: return VT_I4;
        case VT_UI4: return VT_R8;
        default: return type;
    }
}
