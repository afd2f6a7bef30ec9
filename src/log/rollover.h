// The rollover: moving aside the log file of the processes that ran before.
#pragma once

#include "tessmaru/text.h"

namespace logging {

/// Renames the file at `path` to "Previous " and its name, in the same directory, where it replaces an earlier file. A
/// directory is not renamed. A file that cannot be renamed stays, and the log appends to it.
///
/// @return false if a file stays that no process has open, so that its end may be an incomplete record. A file that is
///         open, under another spelling of its path, may have a writer at this moment.
bool MoveOldFileAside(const utility::wstring& path);

}  // namespace logging
