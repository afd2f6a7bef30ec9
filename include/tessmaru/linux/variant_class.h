// The class over a variant for Linux. Included by platform.h.
#pragma once

#include "tessmaru/linux/com.h"

/// A variant that owns its value. A failure to copy or to release throws _com_error with the platform's code. Read the
/// value from the field of its type: there are no conversions between types.
class TESSMARU_API _variant_t : public tagVARIANT {
public:
    // NOLINTBEGIN(google-explicit-constructor): a value converts to the variant that holds it
    _variant_t() noexcept { VariantInit(this); }
    _variant_t(const VARIANT& source) : _variant_t() { Copy(source); }
    _variant_t(const _variant_t& source) : _variant_t() { Copy(source); }
    _variant_t(_variant_t&& source) noexcept : tagVARIANT(source) { VariantInit(&source); }

    /// Takes over the value of `source` unless `copy` is set.
    _variant_t(VARIANT& source, bool copy) : _variant_t() { copy ? Copy(source) : Attach(source); }

    _variant_t(SHORT value) noexcept { vt = VT_I2, iVal = value; }
    _variant_t(LONG value) noexcept { vt = VT_I4, lVal = value; }
    _variant_t(FLOAT value) noexcept { vt = VT_R4, fltVal = value; }
    _variant_t(DOUBLE value) noexcept { vt = VT_R8, dblVal = value; }
    _variant_t(const CY& value) noexcept { vt = VT_CY, cyVal = value; }
    _variant_t(bool value) noexcept { vt = VT_BOOL, boolVal = value ? VARIANT_TRUE : VARIANT_FALSE; }
    _variant_t(CHAR value) noexcept { vt = VT_I1, cVal = value; }
    _variant_t(BYTE value) noexcept { vt = VT_UI1, bVal = value; }
    _variant_t(USHORT value) noexcept { vt = VT_UI2, uiVal = value; }
    _variant_t(ULONG value) noexcept { vt = VT_UI4, ulVal = value; }
    _variant_t(LONGLONG value) noexcept { vt = VT_I8, llVal = value; }
    _variant_t(ULONGLONG value) noexcept { vt = VT_UI8, ullVal = value; }
    _variant_t(const DECIMAL& value) noexcept { decVal = value, vt = VT_DECIMAL; }

    /// A string of the units up to the first zero.
    _variant_t(const OLECHAR* text);

    /// Takes over the caller's reference unless `addReference` is set.
    _variant_t(IUnknown* object, bool addReference = true) noexcept;
    _variant_t(IDispatch* object, bool addReference = true) noexcept;
    // NOLINTEND(google-explicit-constructor)

    ~_variant_t() noexcept { VariantClear(this); }

    _variant_t& operator=(const _variant_t& source)
    {
        Copy(source);
        return *this;
    }
    _variant_t& operator=(_variant_t&& source)  // NOLINT(performance-noexcept-move-constructor): a locked array stays
    {
        if (this != &source)
            Attach(source);
        return *this;
    }

    /// Releases the value; the variant is VT_EMPTY then.
    void Clear();

    /// Clears this variant and takes over the value of `source`, which becomes VT_EMPTY.
    void Attach(VARIANT& source);

    /// Hands the value over to the caller; this variant becomes VT_EMPTY.
    VARIANT Detach() noexcept
    {
        const VARIANT held = *this;
        VariantInit(this);
        return held;
    }

    /// The plain variant, still owned by this object.
    VARIANT& GetVARIANT() noexcept { return *this; }

private:
    void Copy(const VARIANT& source);
};
