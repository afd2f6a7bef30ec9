// Automation data: names of variant types, and lists as safe arrays. All functions work on what they are given and
// keep nothing; any thread may call them.
#pragma once

#include "tessmaru/platform.h"
#include "tessmaru/text.h"

#include <vector>

namespace utility {

/// The name of a variant's type code, such as "VT_BSTR"; "Array: " stands in front of it where VT_ARRAY is set. A code
/// with any other flag beside a type has no name: "Unknown code 16387 / 0x00004003".
TESSMARU_API wstring getVtTypeAsString(unsigned short type);

/// The type that holds the whole range of a small integer type and that every automation client knows: VT_I2 for
/// VT_I1 and VT_UI1, VT_I4 for VT_UI2, VT_R8 for VT_UI4. Any other code comes back as it is.
TESSMARU_API unsigned short getVtTypeAsAutomationType(unsigned short type);

/// How many elements a dimension has, counted from 1.
/// @throws _com_error E_INVALIDARG for a null array or a dimension that it has not; the platform's code for
///         dimension 0.
TESSMARU_API LONG getSafeArrayCount(SAFEARRAY* array, ULONG dimension);

/// Lists between vectors and one-dimensional arrays with lower bound 0.
///
/// To an array: `target` must not be null, and what it points to must be null or a valid array, which is destroyed.
/// The new array is the caller's, to be ended with SafeArrayDestroy or by the next conversion into the same pointer.
/// The result is 0 or a failure code:
/// - the old array cannot be destroyed (it is locked): the platform's code, and the pointer is as it was;
/// - no memory for the new array: E_OUTOFMEMORY, and the pointer is null;
/// - an element cannot be copied: its code, and the pointer is null.
///
/// From an array: `source` stays as it is and is locked only during the call; `target` is emptied first in any case.
/// E_INVALIDARG for null and for an array that is not one-dimensional. Any later failure throws _com_error with the
/// platform's code and leaves `target` empty; DISP_E_BADINDEX if the lower bound is above 0. Elements below index 0
/// are left out. The element type of `source` is not looked at: it has to be the one that the function is for.
///
/// @code
///     SAFEARRAY* array = nullptr;
///     if (FAILED(utility::CCOMUtility::VectStrToSafeArray(names, &array)))
///         return;
///     ...
///     SafeArrayDestroy(array);
/// @endcode
namespace CCOMUtility {

/// Strings (VT_BSTR). A text goes into the array, and comes out of it, up to its first zero unit; a null string
/// comes out empty.
/// @throws _com_error E_OUTOFMEMORY from VectStrToSafeArray: then the array that is there so far is the caller's.
TESSMARU_API LONG VectStrToSafeArray(const std::vector<wstring>& source, SAFEARRAY** target);
TESSMARU_API LONG SafeArrayToVectStr(const SAFEARRAY* source, std::vector<wstring>& target);

/// 32-bit numbers (VT_I4).
TESSMARU_API LONG VectLongToSafeArray(const std::vector<LONG>& source, SAFEARRAY** target);
TESSMARU_API LONG SafeArrayToVectLong(const SAFEARRAY* source, std::vector<LONG>& target);

/// Variants (VT_VARIANT), copied in depth.
TESSMARU_API LONG VectVariantToSafeArray(const std::vector<_variant_t>& source, SAFEARRAY** target);
TESSMARU_API LONG SafeArrayToVariant(const SAFEARRAY* source, std::vector<_variant_t>& target);

}  // namespace CCOMUtility
}  // namespace utility
