// Paths of the platform's form on this file system.
#pragma once

#include "text/text.h"

namespace layer {

/// The path on disk, in UTF-8, for a path in the platform's form or in that of Linux: backslashes and slashes
/// separate, and a drive letter stands for the folder that the settings store names for it.
/// @return 0, or a system error with `translated` unchanged: ERROR_PATH_NOT_FOUND for an empty path and an
///         unmapped drive, ERROR_BAD_NETPATH for the path of another machine, ERROR_INVALID_NAME for half a
///         surrogate pair, ERROR_FILENAME_EXCED_RANGE, or why the store cannot be read.
/// @throws std::bad_alloc
DWORD TranslatePath(LPCWSTR path, std::string& translated);

}  // namespace layer
