// The class _variant_t: a VARIANT that owns its content and reports failures as _com_error.
#include "tessmaru/platform.h"

namespace {

void Check(HRESULT result)
{
    if (FAILED(result))
        _com_issue_error(result);
}

}  // namespace

_variant_t::_variant_t(const OLECHAR* text)
{
    vt = VT_BSTR;
    bstrVal = SysAllocString(text);
    if (bstrVal == nullptr && text != nullptr)
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
    vt = VT_DISPATCH;
}

void _variant_t::Clear()
{
    Check(VariantClear(this));
}

void _variant_t::Attach(VARIANT& source)
{
    Clear();
    static_cast<VARIANT&>(*this) = source;
    VariantInit(&source);
}

void _variant_t::Copy(const VARIANT& source)
{
    Check(VariantCopy(this, &source));
}
