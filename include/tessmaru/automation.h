// Automation data: names of variant types, and conversion between vectors and safe arrays. The functions work on their
// arguments only; any thread may call them.
#pragma once

#include "tessmaru/platform.h"
#include "tessmaru/text.h"

#include <vector>

namespace utility {

/// The name of a variant's type code, such as "VT_BSTR"; if VT_ARRAY is set, "Array: " precedes it. A code with any
/// other flag in addition to a type has no name: "Unknown code 16387 / 0x00004003".
TESSMARU_API wstring getVtTypeAsString(unsigned short type);

/// For an integer type that not every automation client knows, a type that all know and that holds its whole range:
/// VT_I2 for VT_I1 and VT_UI1, VT_I4 for VT_UI2, VT_R8 for VT_UI4. Any other code is returned unchanged.
TESSMARU_API unsigned short getVtTypeAsAutomationType(unsigned short type);

/// The number of elements of a dimension; dimensions count from 1.
/// @throws _com_error E_INVALIDARG for a null array or a dimension that the array does not have; the platform's code
///         for dimension 0.
TESSMARU_API LONG getSafeArrayCount(SAFEARRAY* array, ULONG dimension);

/// Conversion between vectors and one-dimensional arrays with lower bound 0.
///
/// To an array: `target` must not be null. The pointer at `target` must be null or a valid array, which is destroyed.
/// The caller owns the new array and ends it with SafeArrayDestroy or by the next conversion into the same pointer. The
/// result is 0 or a failure code:
/// - the old array cannot be destroyed (it is locked): the platform's code, and the pointer is unchanged;
/// - no memory for the new array: E_OUTOFMEMORY, and the pointer is null;
/// - an element cannot be copied: its code, and the pointer is null.
///
/// From an array: `source` is not changed and is locked only during the call. `target` is emptied first, also if the
/// call fails. The result is 0, or E_INVALIDARG for null and for an array that is not one-dimensional. Any later
/// failure throws _com_error with the platform's code; it is DISP_E_BADINDEX for a lower bound above 0. Elements below
/// index 0 are left out. The element type of `source` is not checked: it must be the type that the function is for.
///
/// @code
///     SAFEARRAY* array = nullptr;
///     if (FAILED(utility::CCOMUtility::VectStrToSafeArray(names, &array)))
///         return;
///     ...
///     SafeArrayDestroy(array);
/// @endcode
namespace CCOMUtility {

/// Strings (VT_BSTR). In both directions a text ends at its first zero unit. A null string becomes an empty text.
/// @throws _com_error E_OUTOFMEMORY from VectStrToSafeArray; the pointer then has the partly filled array, which the
///         caller owns.
TESSMARU_API LONG VectStrToSafeArray(const std::vector<wstring>& source, SAFEARRAY** target);
TESSMARU_API LONG SafeArrayToVectStr(const SAFEARRAY* source, std::vector<wstring>& target);

/// 32-bit numbers (VT_I4).
TESSMARU_API LONG VectLongToSafeArray(const std::vector<LONG>& source, SAFEARRAY** target);
TESSMARU_API LONG SafeArrayToVectLong(const SAFEARRAY* source, std::vector<LONG>& target);

/// Variants (VT_VARIANT), as deep copies.
TESSMARU_API LONG VectVariantToSafeArray(const std::vector<_variant_t>& source, SAFEARRAY** target);
TESSMARU_API LONG SafeArrayToVariant(const SAFEARRAY* source, std::vector<_variant_t>& target);

}  // namespace CCOMUtility
}  // namespace utility
