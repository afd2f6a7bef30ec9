// Converts between the numeric types of variants.
//
// Every number passes through a `long double`, which has the 64 bits of the widest integers on these processors.
#include "automation/variant_conversion.h"

#include <cmath>
#include <limits>
#include <type_traits>

namespace {

static_assert(std::numeric_limits<long double>::digits >= 64);

// The first day of the year 100, and the first one after the year 9999.
constexpr long double FirstDate = -657434;
constexpr long double EndOfDates = 2958466;

/// Calls `use` with the field of a numeric variant's value.
/// @return false if the variant is not numeric
template <class Variant, class Use>
bool WithNumber(Variant& variant, Use use)
{
    switch (variant.vt) {
        case VT_I1: use(variant.cVal); return true;
        case VT_UI1: use(variant.bVal); return true;
        case VT_I2:
        case VT_BOOL: use(variant.iVal); return true;
        case VT_UI2: use(variant.uiVal); return true;
        case VT_I4:
        case VT_INT: use(variant.lVal); return true;
        case VT_UI4:
        case VT_UINT: use(variant.ulVal); return true;
        case VT_I8: use(variant.llVal); return true;
        case VT_UI8: use(variant.ullVal); return true;
        case VT_R4: use(variant.fltVal); return true;
        case VT_R8:
        case VT_DATE: use(variant.dblVal); return true;
        default: return false;
    }
}

/// @return false if the number is out of range, or is none (NaN)
template <class Value>
bool Store(long double number, Value& value)
{
    if constexpr (std::is_integral_v<Value>)
        number = std::nearbyint(number);  // halves to the even number, as published
    if (!(number >= std::numeric_limits<Value>::lowest() && number <= std::numeric_limits<Value>::max()))
        return false;
    value = static_cast<Value>(number);
    return true;
}

}  // namespace

HRESULT layer::ConvertNumber(const VARIANT& source, VARTYPE type, VARIANT& target)
{
    long double number = 0;
    const bool isNumber = WithNumber(source, [&number](auto value) { number = value; });
    if (!isNumber && source.vt != VT_EMPTY)
        return DISP_E_TYPEMISMATCH;
    VARIANT made{};
    made.vt = type;
    bool fits = false;
    const bool toNumber = WithNumber(made, [&](auto& value) {
        fits = true;
        if (type == VT_BOOL)
            value = static_cast<std::remove_reference_t<decltype(value)>>(number != 0 ? VARIANT_TRUE : VARIANT_FALSE);
        else if (source.vt == VT_BOOL)  // published: all bits are set, also those of an unsigned number
            value = static_cast<std::remove_reference_t<decltype(value)>>(source.boolVal);
        else
            fits = Store(number, value) && (type != VT_DATE || (number >= FirstDate && number < EndOfDates));
    });
    if (!toNumber)
        return DISP_E_TYPEMISMATCH;
    if (!fits)
        return DISP_E_OVERFLOW;
    target = made;
    return S_OK;
}
