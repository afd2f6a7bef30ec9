// The class _variant_t: a VARIANT that owns its content and throws _com_error on failure.
#include "automation/safe_array_elements.h"
#include "automation/variant_conversion.h"
#include "system.h"

#include <cstring>

namespace {

void ThrowIfFailed(HRESULT result)
{
    if (FAILED(result))
        _com_issue_error(result);
}

/// Makes a string of narrow text in the active code page.
/// @throws _com_error
BSTR Widen(const CHAR* text)
{
    if (text == nullptr)
        return nullptr;
    const int units = MultiByteToWideChar(CP_ACP, 0, text, -1, nullptr, 0);  // with the terminator
    if (units == 0)
        _com_issue_error(HRESULT_FROM_WIN32(GetLastError()));
    const BSTR string = SysAllocStringLen(nullptr, static_cast<UINT>(units - 1));
    if (string == nullptr)
        _com_issue_error(E_OUTOFMEMORY);
    if (MultiByteToWideChar(CP_ACP, 0, text, -1, string, units) != units) {
        SysFreeString(string);
        _com_issue_error(E_FAIL);
    }
    return string;
}

}  // namespace

_variant_t::_variant_t(const VARIANT* source) : _variant_t()
{
    if (source == nullptr)
        _com_issue_error(E_POINTER);
    Copy(*source);
}

_variant_t::_variant_t(SHORT value, VARTYPE type)
{
    vt = type;
    switch (type) {
        case VT_I2: iVal = value; return;
        case VT_BOOL: boolVal = value != 0 ? VARIANT_TRUE : VARIANT_FALSE; return;
        default: _com_issue_error(E_INVALIDARG);
    }
}

_variant_t::_variant_t(LONG value, VARTYPE type)
{
    vt = type;
    switch (type) {
        case VT_I4:
        case VT_ERROR: lVal = value; return;
        case VT_BOOL: boolVal = value != 0 ? VARIANT_TRUE : VARIANT_FALSE; return;
        default: _com_issue_error(E_INVALIDARG);
    }
}

_variant_t::_variant_t(DOUBLE value, VARTYPE type)
{
    if (type != VT_R8 && type != VT_DATE)
        _com_issue_error(E_INVALIDARG);
    vt = type;
    dblVal = value;
}

_variant_t::_variant_t(const OLECHAR* text)
{
    vt = VT_BSTR;
    bstrVal = SysAllocString(text);
    if (bstrVal == nullptr && text != nullptr)  // a null text is no failure: it gives a null string
        _com_issue_error(E_OUTOFMEMORY);
}

_variant_t::_variant_t(const CHAR* text)
{
    vt = VT_BSTR;
    bstrVal = Widen(text);
}

_variant_t::_variant_t(IUnknown* object, bool addReference) noexcept
{
    vt = VT_UNKNOWN;
    punkVal = object;
    if (object != nullptr && addReference)
        object->AddRef();
}

_variant_t::_variant_t(IDispatch* object, bool addReference) noexcept
    : _variant_t(static_cast<IUnknown*>(object), addReference)
{
    vt = VT_DISPATCH;  // IDispatch derives from IUnknown alone, so both fields of the union have the same value
}

bool _variant_t::operator==(const VARIANT& other) const noexcept
{
    if (vt != other.vt)
        return false;
    switch (vt) {
        case VT_EMPTY:
        case VT_NULL: return true;
        case VT_R4: return fltVal == other.fltVal;
        case VT_R8:
        case VT_DATE: return dblVal == other.dblVal;
        case VT_DECIMAL: return std::memcmp(&decVal, &other.decVal, sizeof decVal) == 0;
        case VT_BSTR: {
            const UINT bytes = SysStringByteLen(bstrVal);
            return bytes == SysStringByteLen(other.bstrVal) &&
                   (bytes == 0 || std::memcmp(bstrVal, other.bstrVal, bytes) == 0);
        }
        default: break;
    }
    const ULONG bytes = layer::ElementTypeOf(vt).Bytes;  // 0 for an array and a reference
    return std::memcmp(&byref, &other.byref, bytes != 0 ? bytes : sizeof byref) == 0;
}

void _variant_t::ChangeType(VARTYPE type, const _variant_t* source)
{
    const VARIANT& from = source != nullptr ? *source : *this;
    if (from.vt == type)
        return Copy(from);
    VARIANT changed{};
    ThrowIfFailed(layer::ConvertNumber(from, type, changed));
    Attach(changed);
}

void _variant_t::Clear()
{
    ThrowIfFailed(VariantClear(this));
}

void _variant_t::Attach(VARIANT& source)
{
    Clear();
    static_cast<VARIANT&>(*this) = source;
    VariantInit(&source);
}

void _variant_t::Copy(const VARIANT& source)
{
    ThrowIfFailed(VariantCopy(this, &source));
}
