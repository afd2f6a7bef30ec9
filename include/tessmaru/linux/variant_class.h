// The class over a variant for Linux. Included by platform.h.
#pragma once

#include "tessmaru/linux/com.h"

#include <concepts>
#include <type_traits>

namespace platform {

template <class Type>
concept AnyPointer = std::is_pointer_v<Type> || std::is_member_pointer_v<Type>;

/// A pointer that is neither to text nor to a variant nor to an interface.
template <class Type>
concept OtherPointer =
    AnyPointer<Type> && !std::is_convertible_v<Type, const OLECHAR*> && !std::is_convertible_v<Type, const CHAR*> &&
    !std::is_convertible_v<Type, const VARIANT*> && !std::is_convertible_v<Type, IUnknown*>;

}  // namespace platform

/// A variant that owns its value. A failure to copy or to release throws _com_error with the platform's code. Read the
/// value from the field of its type; ChangeType converts numbers.
class TESSMARU_API _variant_t : public tagVARIANT {
    // The one of `long` and `long long` that is not LONGLONG, and the type of its width that a variant has.
    using OtherLong = std::conditional_t<std::is_same_v<LONGLONG, long>, long long, long>;
    using SameAsOtherLong = std::conditional_t<sizeof(OtherLong) == sizeof(LONGLONG), LONGLONG, LONG>;

public:
    // NOLINTBEGIN(google-explicit-constructor): a value converts to the variant that holds it
    _variant_t() noexcept { VariantInit(this); }
    _variant_t(const VARIANT& source) : _variant_t() { Copy(source); }
    _variant_t(const VARIANT* source);  ///< @throws _com_error E_POINTER for null
    _variant_t(const _variant_t& source) : _variant_t() { Copy(source); }
    _variant_t(_variant_t&& source) noexcept : tagVARIANT(source) { VariantInit(&source); }

    /// Takes over the value of `source` unless `copy` is set.
    _variant_t(VARIANT& source, bool copy) : _variant_t() { copy ? Copy(source) : Attach(source); }

    /// A number, with the usual type or with the one that is given: VT_BOOL for the first two, VT_ERROR for LONG,
    /// VT_DATE for DOUBLE.
    /// @throws _com_error E_INVALIDARG for any other type.
    _variant_t(SHORT value, VARTYPE type = VT_I2);
    _variant_t(LONG value, VARTYPE type = VT_I4);
    _variant_t(DOUBLE value, VARTYPE type = VT_R8);

    _variant_t(FLOAT value) noexcept { vt = VT_R4, fltVal = value; }
    _variant_t(const CY& value) noexcept { vt = VT_CY, cyVal = value; }
    _variant_t(bool value) noexcept { vt = VT_BOOL, boolVal = value ? VARIANT_TRUE : VARIANT_FALSE; }
    _variant_t(CHAR value) noexcept { vt = VT_I1, cVal = value; }
    _variant_t(BYTE value) noexcept { vt = VT_UI1, bVal = value; }
    _variant_t(USHORT value) noexcept { vt = VT_UI2, uiVal = value; }
    _variant_t(ULONG value) noexcept { vt = VT_UI4, ulVal = value; }
    _variant_t(LONGLONG value) noexcept { vt = VT_I8, llVal = value; }
    _variant_t(ULONGLONG value) noexcept { vt = VT_UI8, ullVal = value; }
    _variant_t(OtherLong value) : _variant_t(static_cast<SameAsOtherLong>(value)) {}
    _variant_t(std::make_unsigned_t<OtherLong> value) noexcept
        : _variant_t(static_cast<std::make_unsigned_t<SameAsOtherLong>>(value))
    {
    }
    _variant_t(const DECIMAL& value) noexcept { decVal = value, vt = VT_DECIMAL; }

    /// A string of the units up to the first zero; narrow text is in the active code page. Null gives a null string.
    _variant_t(const OLECHAR* text);
    _variant_t(const CHAR* text);

    /// Takes over the caller's reference unless `addReference` is set.
    _variant_t(IUnknown* object, bool addReference = true) noexcept;
    _variant_t(IDispatch* object, bool addReference = true) noexcept;

    /// Any other pointer would become a bool.
    template <platform::OtherPointer Pointer>
    _variant_t(Pointer) = delete;
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

    /// These numbers keep the type of a variant that can hold them as such: a truth value, an error code or a date.
    _variant_t& operator=(std::same_as<SHORT> auto value)
    {
        return *this = _variant_t(value, vt == VT_BOOL ? VT_BOOL : VT_I2);
    }
    _variant_t& operator=(std::same_as<LONG> auto value)
    {
        return *this = _variant_t(value, vt == VT_BOOL || vt == VT_ERROR ? vt : VT_I4);
    }
    _variant_t& operator=(std::same_as<DOUBLE> auto value)
    {
        return *this = _variant_t(value, vt == VT_DATE ? VT_DATE : VT_R8);
    }

    /// Whether type and value are the same. A null string equals an empty one. Arrays and references are compared by
    /// their addresses.
    bool operator==(const VARIANT& other) const noexcept;
    bool operator==(const VARIANT* other) const noexcept { return other != nullptr && *this == *other; }
    bool operator==(const std::same_as<_variant_t> auto& other) const noexcept
    {
        return *this == static_cast<const VARIANT&>(other);
    }

    /// Makes this variant the value of `source`, or its own, as another type. Numbers, truth values and dates convert
    /// to each other; real numbers are rounded, halves to the even number.
    /// @throws _com_error DISP_E_OVERFLOW; DISP_E_TYPEMISMATCH for any other conversion; the variant is unchanged then.
    void ChangeType(VARTYPE type, const _variant_t* source = nullptr);

    /// Makes this variant a string, as the constructor does.
    void SetString(const CHAR* text) { *this = text; }

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

    /// The same after Clear, for a call that returns a variant.
    VARIANT* GetAddress()
    {
        Clear();
        return this;
    }

private:
    void Copy(const VARIANT& source);
};
