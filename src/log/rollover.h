// The rollover: moving aside the log file of the processes that ran before.
#pragma once

#include "tessmaru/text.h"

namespace logging {

/// Renames the file at `path` to "Previous " and its name, in the same directory, where it replaces an earlier file. An
/// empty file, one that is open under another spelling of its path, and what is no regular file are not renamed. A file
/// that cannot be renamed stays, and the log appends to it; then the earlier file stays too.
void MoveOldFileAside(const utility::wstring& path);

}  // namespace logging
