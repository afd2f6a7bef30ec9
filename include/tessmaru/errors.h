// Failures as one line of text, for a log or a message, and, by structured_exception.h, processor faults as exceptions.
// Any number of threads may call these functions at once.
//
// If memory runs out while a text is made, std::bad_alloc reaches the caller.
#pragma once

#include "tessmaru/platform.h"
#include "tessmaru/structured_exception.h"
#include "tessmaru/text.h"

#include <exception>

namespace utility {

/// The line of a 32-bit HRESULT: `description [0xCODE: NAME - FACILITY]`.
///
/// The description is the text of the system, or of the program's own message table; "Unknown or new error" if neither
/// has one. It is cut at its last line end. A system error must be given in the form that HRESULT_FROM_WIN32 makes: the
/// plain number has no name.
///
/// @return the line; empty if it would exceed 1022 units.
///
/// @code
///     log->LogError(u"%s"_w, u"Import"_w, utility::genHResultAsString(E_FAIL).c_str());
///     // The operation failed ... [0x80004005: E_FAIL - FACILITY_NULL]
/// @endcode
TESSMARU_API wstring genHResultAsString(LONG hr);

/// The text of a standard exception, read in the machine's active code page; the type of the exception is not part of
/// it. "<unable to determine exception info>" if the code page cannot read the text.
/// @throws _com_error E_OUTOFMEMORY if there is no memory even for that.
TESSMARU_API wstring getStdExceptionAsString(const std::exception& e);

/// The line of an automation failure: `ComError: description [0xCODE: message - source]`. Description and source come
/// from the error object, the message is the system's text for the code. A missing or empty text becomes "n/a". The
/// message is kept in `e`, so one exception object serves one thread at a time.
///
/// @return the line; empty if it would exceed 1022 units.
/// @throws _com_error E_OUTOFMEMORY if there is no memory for "n/a"; any exception of the error object.
///
/// @code
///     try {
///         Connect(site);
///     } catch (const _com_error& failure) {
///         log->LogError(u"%s"_w, u"Import"_w, utility::getComErrorAsString(failure).c_str());
///     }
/// @endcode
TESSMARU_API wstring getComErrorAsString(const _com_error& e);

/// Whether the calling thread has an error object. The thread keeps it.
TESSMARU_API bool testIErrorInfoGenerated();

}  // namespace utility
