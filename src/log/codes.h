// The codes of the log's own failures.
#pragma once

#include "tessmaru/platform.h"

namespace logging {

/// Other writers kept the mutex of the log file for the whole time that a record waits.
constexpr LONG NotObtained = static_cast<LONG>(0x80040302);

/// A standard exception ended the writing of a record.
constexpr LONG RecordFailed = static_cast<LONG>(0x80040303);

/// The log was closed for good when the library was unloaded: no opening is tried any more.
constexpr LONG Closed = static_cast<LONG>(0x80040304);

}  // namespace logging
