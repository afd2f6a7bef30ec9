// Conversion between the numeric types of variants.
#pragma once

#include "tessmaru/platform.h"

namespace layer {

/// Converts a number, a truth value, a date or VT_EMPTY, which counts as 0.
/// @param target  receives a variant of this type; unchanged on failure. It is overwritten, not cleared.
/// @return S_OK, DISP_E_OVERFLOW, or DISP_E_TYPEMISMATCH if one of the types is no number
HRESULT ConvertNumber(const VARIANT& source, VARTYPE type, VARIANT& target);

}  // namespace layer
