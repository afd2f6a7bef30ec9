// Variants: what each type owns, released and copied.
#include "tessmaru/platform.h"

namespace {

constexpr VARTYPE Flags = static_cast<VARTYPE>(~VT_TYPEMASK);

/// Whether a variant of this type can be copied and released.
bool IsServed(VARTYPE type)
{
    const auto base = static_cast<VARTYPE>(type & VT_TYPEMASK);
    const auto flags = static_cast<VARTYPE>(type & Flags);
    if ((flags & ~(VT_ARRAY | VT_BYREF)) != 0)
        return false;
    const bool holdsNothing = base == VT_EMPTY || base == VT_NULL;
    return (base <= VT_DECIMAL && (flags == 0 || !holdsNothing)) || (base >= VT_I1 && base <= VT_UINT);
}

/// Replaces what the copied bits of a variant refer to by copies. If that fails the bits own nothing.
HRESULT DeepCopy(VARIANT& bits)
{
    if ((bits.vt & VT_BYREF) != 0)
        return S_OK;
    if ((bits.vt & VT_ARRAY) != 0)
        return SafeArrayCopy(bits.parray, &bits.parray);
    switch (bits.vt) {
        case VT_BSTR:
            // A null string is an empty one, and that is what its copy is.
            bits.bstrVal =
                SysAllocStringByteLen(reinterpret_cast<LPCSTR>(bits.bstrVal), SysStringByteLen(bits.bstrVal));
            return bits.bstrVal != nullptr ? S_OK : E_OUTOFMEMORY;
        case VT_UNKNOWN:
        case VT_DISPATCH:
            if (bits.punkVal != nullptr)
                bits.punkVal->AddRef();
            return S_OK;
        default: return S_OK;
    }
}

}  // namespace

void VariantInit(VARIANT* variant)
{
    variant->vt = VT_EMPTY;
}

HRESULT VariantClear(VARIANT* variant)
{
    if (variant == nullptr)
        return E_INVALIDARG;
    if (!IsServed(variant->vt))
        return DISP_E_BADVARTYPE;
    if ((variant->vt & VT_BYREF) == 0) {
        if ((variant->vt & VT_ARRAY) != 0) {
            const HRESULT destroyed = SafeArrayDestroy(variant->parray);
            if (FAILED(destroyed))
                return destroyed;
        } else if (variant->vt == VT_BSTR) {
            SysFreeString(variant->bstrVal);
        } else if ((variant->vt == VT_UNKNOWN || variant->vt == VT_DISPATCH) && variant->punkVal != nullptr) {
            variant->punkVal->Release();
        }
    }
    variant->vt = VT_EMPTY;
    return S_OK;
}

HRESULT VariantCopy(VARIANT* target, const VARIANT* source)
{
    if (target == nullptr || source == nullptr)
        return E_INVALIDARG;
    if (!IsServed(source->vt))
        return DISP_E_BADVARTYPE;
    if (target == source)
        return S_OK;
    // Copied before the target is cleared: the source may be a part of what the target owns.
    VARIANT copy = *source;
    HRESULT result = DeepCopy(copy);
    if (FAILED(result))
        return result;
    result = VariantClear(target);
    if (FAILED(result)) {
        VariantClear(&copy);
        return result;
    }
    *target = copy;
    return S_OK;
}
