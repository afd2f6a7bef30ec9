// Failures as one line of text, for a log or a message, and faults of the processor as exceptions. Any number of
// threads may call these functions at once.
//
// Memory that runs out while a text is made reaches the caller as std::bad_alloc.
#pragma once

#include "tessmaru/platform.h"
#include "tessmaru/structured_exception.h"
#include "tessmaru/text.h"

#include <exception>

namespace utility {

/// The line of a 32-bit HRESULT: `description [0xCODE: NAME - FACILITY]`.
///
/// The description is the system's text for the code, or that of the program's own message table; "Unknown or new
/// error" where neither has one. Texts of more than one line lose the last line end and what stands behind it. A
/// system error that is not in HRESULT form has no name; give it as HRESULT_FROM_WIN32 makes it.
///
/// @return the line; empty only for a description so long that the line would exceed 1022 units.
///
/// @code
///     log->LogError(u"%s"_w, u"Import"_w, utility::genHResultAsString(E_FAIL).c_str());
///     // The operation failed ... [0x80004005: E_FAIL - FACILITY_NULL]
/// @endcode
TESSMARU_API wstring genHResultAsString(LONG hr);

/// The text of a standard exception, read in the machine's active code page; nothing of its type goes in.
/// "<unable to determine exception info>" for a text that this page cannot read.
/// @throws _com_error E_OUTOFMEMORY if there is no memory even for that.
TESSMARU_API wstring getStdExceptionAsString(const std::exception& e);

/// The line of an automation failure: `ComError: description [0xCODE: message - source]`. Description and source come
/// from its error object, the message is the system's text for the code; "n/a" stands for what is missing or empty.
/// The message is kept in `e`: one exception object serves one thread at a time.
///
/// @return the line; empty where it would exceed 1022 units.
/// @throws _com_error E_OUTOFMEMORY if there is no memory for "n/a"; what the error object throws.
///
/// @code
///     try {
///         Connect(site);
///     } catch (const _com_error& failure) {
///         log->LogError(u"%s"_w, u"Import"_w, utility::getComErrorAsString(failure).c_str());
///     }
/// @endcode
TESSMARU_API wstring getComErrorAsString(const _com_error& e);

/// Whether the calling thread has an error object, which stays where it is.
TESSMARU_API bool testIErrorInfoGenerated();

}  // namespace utility
