// Moves the old log file aside, before the first process of the suite opens a new one.
#include "log/rollover.h"

#include "settings/tag_specification.h"
#include "system.h"
#include "tessmaru/text.h"

using namespace utility::literals;
using utility::wstring;

namespace {

wstring PreviousPath(const wstring& path)
{
    const std::size_t separator = path.find_last_of(u"\\/"_w);
    wstring previous = path;
    previous.insert(separator == wstring::npos ? 0 : separator + 1, u"Previous "_w);
    return previous;
}

bool IsFile(const wstring& path)
{
    WIN32_FIND_DATAW found;
    const HANDLE search = FindFirstFileW(platform::Wide(path.c_str()), &found);
    if (search == INVALID_HANDLE_VALUE)
        return false;
    FindClose(search);
    return (found.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) == 0;
}

}  // namespace

bool logging::MoveOldFileAside(const wstring& path)
{
    if (!IsFile(path))
        return true;
    const wstring previous = PreviousPath(path);
    // MoveFileW does not replace a file. A failure of either call is not reported: it leaves a file to append to.
    DeleteFileW(platform::Wide(previous.c_str()));
    return MoveFileW(platform::Wide(path.c_str()), platform::Wide(previous.c_str())) ||
           GetLastError() == ERROR_SHARING_VIOLATION;
}
