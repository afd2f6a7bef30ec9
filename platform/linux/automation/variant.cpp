// Variants: clearing them and copying them in depth.
#include "tessmaru/platform.h"

namespace {

constexpr VARTYPE FlagBits = static_cast<VARTYPE>(~VT_TYPEMASK);

/// Whether a variant of this type can be copied and cleared. VT_EMPTY and VT_NULL have no content, so there is no array
/// of them and no reference to them. Records (VT_RECORD) are not supported.
bool IsSupported(VARTYPE type)
{
    const auto base = static_cast<VARTYPE>(type & VT_TYPEMASK);
    const auto flags = static_cast<VARTYPE>(type & FlagBits);
    if ((flags & ~(VT_ARRAY | VT_BYREF)) != 0)
        return false;
    const bool holdsNothing = base == VT_EMPTY || base == VT_NULL;
    return (base <= VT_DECIMAL && (flags == 0 || !holdsNothing)) || (base >= VT_I1 && base <= VT_UINT);
}

/// Turns a bitwise copy of a variant into a deep copy.
/// @param bits  the bitwise copy; after a failure it owns nothing
HRESULT DeepCopy(VARIANT& bits)
{
    if ((bits.vt & VT_BYREF) != 0)  // published: the reference is copied, not the value
        return S_OK;
    if ((bits.vt & VT_ARRAY) != 0)
        return SafeArrayCopy(bits.parray, &bits.parray);
    switch (bits.vt) {
        case VT_BSTR:
            // A null string is copied as an empty one. This looks wrong but matches the platform, where both mean the
            // empty text.
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

// A reference (VT_BYREF) owns nothing, so only its type is reset.
HRESULT VariantClear(VARIANT* variant)
{
    if (variant == nullptr)
        return E_INVALIDARG;
    if (!IsSupported(variant->vt))
        return DISP_E_BADVARTYPE;
    if ((variant->vt & VT_BYREF) == 0) {
        if ((variant->vt & VT_ARRAY) != 0) {
            // A locked array cannot be destroyed; the variant then stays as it is.
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
    if (!IsSupported(source->vt))
        return DISP_E_BADVARTYPE;
    if (target == source)
        return S_OK;
    // Copied before the target is cleared: the source may be a part of what the target owns, such as an element of its
    // array.
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
