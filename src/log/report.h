// What the log reports in debug output: the reasons that its callers get as a bare code, or not at all.
#pragma once

#include "tessmaru/platform.h"
#include "tessmaru/text.h"

namespace logging {

/// Reports why the log does not open: "CLOG - Log not opened: ", the reason, its subject and the text of the code.
void ReportFailure(const unsigned short* reason, const utility::wstring& subject, LONG code) noexcept;

/// Reports a short date of the machine that does not fit a record on some day of the year: the records of that day
/// would be lost.
void ReportLongDates() noexcept;

}  // namespace logging
