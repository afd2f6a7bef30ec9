// The class _variant_t: a VARIANT that owns its content and throws _com_error on failure.
#include "tessmaru/platform.h"

namespace {

void ThrowIfFailed(HRESULT result)
{
    if (FAILED(result))
        _com_issue_error(result);
}

}  // namespace

_variant_t::_variant_t(const OLECHAR* text)
{
    vt = VT_BSTR;
    bstrVal = SysAllocString(text);
    if (bstrVal == nullptr && text != nullptr)  // a null text is no failure: it gives a null string
        _com_issue_error(E_OUTOFMEMORY);
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
