// The file of the log while it is open. All of this happens under the mutex of the file.
#pragma once

#include "primitives/unique_handle.h"
#include "system.h"
#include "tessmaru/text.h"

#include <string_view>

namespace logging {

/// How long a record waits for the mutex of the file. After this time it is lost, so that its caller can go on.
constexpr DWORD RecordWaitMilliseconds = 1000;

/// Opens the file at `path`, or makes it with these attributes. Other processes may have it open too.
/// @return no handle with the reason in GetLastError if that fails.
UniqueHandle OpenFile(const utility::wstring& path, SECURITY_ATTRIBUTES* attributes);

/// Ends an incomplete last line of the file, so that the next record starts a line at a whole unit. A writer that was
/// killed can leave one: the system may stop a write between two pages. Nothing that the file holds is removed.
/// @return false with the reason in GetLastError.
bool EndLastLine(HANDLE file);

/// Appends lines to the file of the log, wherever an administrator has moved it and whatever earlier writes left.
class LineAppender {
public:
    constexpr LineAppender() = default;

    /// The last writer ended in the middle of something: the end of the file is checked before the next line.
    void DistrustEnd() { EndIsUnsure = true; }

    /// Ends an incomplete last line if the end is to be checked. After a failure the next Append tries again.
    void RepairEnd(HANDLE file);

    /// Checks whether `file` is still the file at `path`. If an administrator has moved or removed that, or the program
    /// has closed its descriptor, the path is opened again; nothing is rolled over. To be called once a second.
    /// @param file replaced by the new handle
    /// @return 0, or why the path cannot be opened; the next Append tries again.
    LONG CheckFile(HANDLE& file, const utility::wstring& path, SECURITY_ATTRIBUTES* attributes);

    /// Whether the end is still to be checked.
    bool IsEndUnsure() const { return EndIsUnsure; }

    /// Whether CheckFile has to be called before the next line.
    bool IsAway() const { return FileIsAway; }

    /// Appends a whole line. @return 0; any other code: nothing of the line counts as written.
    ///
    /// Inline for the same reason as CLog::Log is flattened.
    LONG Append(HANDLE file, std::basic_string_view<unsigned short> line)
    {
        // If the end cannot be repaired the line is written all the same: a record at a wrong place is better than
        // none.
        RepairEnd(file);
        const auto result = platform::AppendToFile(file, line.data(), static_cast<DWORD>(line.size() * sizeof line[0]));
        return result == platform::AppendResult::whole ? 0 : FailureCode(result);
    }

private:
    /// The code of an append that has just failed.
    LONG FailureCode(platform::AppendResult result);

    bool FileIsAway = false;
    bool EndIsUnsure = false;
};

/// The appender of the process's log. The mutex of the file guards it.
extern LineAppender appender;

}  // namespace logging
