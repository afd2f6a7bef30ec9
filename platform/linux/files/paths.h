// The translation of platform paths into paths on disk.
#pragma once

#include "text/text.h"

#include <string>

namespace layer {

/// Translates a path in the platform's form or in that of Linux. Backslashes and slashes separate folders; a drive
/// letter is replaced by the folder that the settings store has for it.
/// @param path        null counts as empty
/// @param translated  receives the path on disk in UTF-8, shorter than PATH_MAX; unchanged on failure
/// @return ERROR_SUCCESS; ERROR_PATH_NOT_FOUND for an empty path or an unmapped drive; ERROR_BAD_NETPATH for the path
///         of another machine; ERROR_INVALID_NAME for an unpaired surrogate; ERROR_FILENAME_EXCED_RANGE;
///         ERROR_OUTOFMEMORY; or the error of reading the store
DWORD TranslatePath(LPCWSTR path, std::string& translated);

}  // namespace layer
