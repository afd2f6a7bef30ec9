// The path of the log file, as the settings give it.
#pragma once

#include "tessmaru/platform.h"
#include "tessmaru/text.h"

namespace logging {

/// Reads "FilePath" of a key below HKEY_LOCAL_MACHINE. The value is taken as it is: its type is not checked and nothing
/// in it is expanded.
///
/// @return 0, or by the rule of HRESULT_FROM_WIN32 the registry's error, ERROR_FILE_NOT_FOUND for an empty value or
///         ERROR_MORE_DATA for one of more than 512 units; `path` is empty then.
LONG ReadFilePath(const utility::wstring& keyPath, utility::wstring& path);

}  // namespace logging
