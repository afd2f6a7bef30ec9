// Operations on the file of the log. All are called under the mutex of the file.
#pragma once

#include "primitives/unique_handle.h"
#include "system.h"
#include "tessmaru/text.h"

#include <string_view>

namespace logging {

/// Opens the file at `path`, or makes it with these attributes. Other processes may have it open too.
/// @return no handle with the reason in GetLastError if that fails.
UniqueHandle OpenFile(const utility::wstring& path, SECURITY_ATTRIBUTES* attributes);

/// Moves to the end of the file, because other processes may have written since the last record. This and Write are
/// inline: each further return after a system call makes a record one to two percent slower.
/// @return false with the reason in GetLastError.
inline bool SeekToEnd(HANDLE file)
{
    // Without the high half, the call fails in a file of more than 4 GB.
    LONG positionHigh = 0;
    return SetFilePointer(file, 0, &positionHigh, FILE_END) != INVALID_SET_FILE_POINTER || GetLastError() == NO_ERROR;
}

/// Writes a whole line at the present position.
/// @return false with the reason in GetLastError; nothing of the line is in the file then.
inline bool Write(HANDLE file, std::basic_string_view<unsigned short> line)
{
    DWORD written = 0;
    return WriteFile(file, line.data(), static_cast<DWORD>(line.size() * sizeof line[0]), &written, nullptr) != FALSE;
}

/// Removes an incomplete record at the end of the file, so that the next record starts a line. A writer that is killed
/// can leave one: the system may stop a write between two pages.
void CutStump(HANDLE file);

}  // namespace logging
