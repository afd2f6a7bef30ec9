// Opens the log file, repairs its end and appends lines.
#include "log/log_file.h"

#include "errors/last_error.h"
#include "settings/tag_specification.h"

#include <algorithm>
#include <cstring>
#include <iterator>
#include <utility>

namespace {

constexpr unsigned char LineEnd[] = {'\r', 0, '\n', 0};

}  // namespace

namespace logging {

constinit LineAppender appender;

UniqueHandle OpenFile(const utility::wstring& path, SECURITY_ATTRIBUTES* attributes)
{
    return UniqueHandle(platform::OpenForAppending(platform::Wide(path.c_str()), attributes));
}

bool EndLastLine(HANDLE file)
{
    unsigned char tail[sizeof LineEnd];
    ULONGLONG size = 0;
    if (!platform::ReadEndOfFile(file, tail, sizeof tail, &size))
        return false;
    const bool isOdd = size % sizeof(unsigned short) != 0;
    const bool isEnded = size >= sizeof LineEnd && std::memcmp(tail, LineEnd, sizeof LineEnd) == 0;
    if (size == 0 || (isEnded && !isOdd))
        return true;
    // Half a unit gets its other half first: otherwise all that follows would be shifted by one byte.
    unsigned char missing[1 + sizeof LineEnd] = {};
    const DWORD half = isOdd ? 1 : 0;
    std::copy(std::begin(LineEnd), std::end(LineEnd), missing + half);
    return platform::AppendToFile(file, missing, half + sizeof LineEnd) == platform::AppendResult::whole;
}

void LineAppender::RepairEnd(HANDLE file)
{
    if (EndIsUnsure)
        EndIsUnsure = !EndLastLine(file);
}

LONG LineAppender::CheckFile(HANDLE& file, const utility::wstring& path, SECURITY_ATTRIBUTES* attributes)
{
    FileIsAway = platform::StateOfFile(file, platform::Wide(path.c_str())) != platform::FileState::current;
    if (!FileIsAway)
        return 0;
    UniqueHandle opened = OpenFile(path, attributes);
    if (!opened)
        return LastErrorCode();
    const UniqueHandle former(std::exchange(file, opened.release()));
    FileIsAway = false;
    DistrustEnd();
    return 0;
}

LONG LineAppender::FailureCode(platform::AppendResult result)
{
    const LONG code = LastErrorCode();
    if (result == platform::AppendResult::part)
        DistrustEnd();
    FileIsAway = code == HRESULT_FROM_WIN32(ERROR_INVALID_HANDLE);
    return code;
}

}  // namespace logging
