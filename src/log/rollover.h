// The rollover: what becomes of the file that the last processes of the suite left.
#pragma once

#include "tessmaru/text.h"

namespace logging {

/// Moves the file at `path` to "Previous " and its name in the same directory, where it replaces an earlier one. A
/// directory stays. A file that cannot be moved stays too, and the log appends to it.
///
/// @return false if a file stays that no process has open. Its last writer may have been killed in the middle of a
///         record. A file that is open somewhere, under another name of the same path, may have a writer now.
bool MoveOldFileAside(const utility::wstring& path);

}  // namespace logging
