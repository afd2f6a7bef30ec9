// The named mutex of a log file, which all processes that write to the file share.
#pragma once

#include "primitives/unique_handle.h"
#include "tessmaru/text.h"

namespace logging {

/// Opens the mutex of the file at `path`, or makes it. A new one belongs to the calling thread and is open to every
/// account, whatever the access rules of the file.
///
/// @param isNew set to whether no other process has the mutex, and so the file, open; unchanged on failure.
/// @return 0, or by the rule of HRESULT_FROM_WIN32 why there is none.
LONG OpenFileMutex(const utility::wstring& path, UniqueHandle& mutex, bool& isNew);

}  // namespace logging
