// Opening the log file and writing at its end.
#include "log/log_file.h"

#include "settings/tag_specification.h"

#include <algorithm>
#include <cstring>

namespace {

/// How far from the end of the file a line end is searched for. Most records are far shorter.
constexpr std::int64_t TailBytes = 0x4000;
constexpr unsigned char LineEnd[] = {'\r', 0, '\n', 0};

/// Moves to a place by its distance from the end of a file, which may be larger than 4 GB. Returns the position, or -1.
std::int64_t SeekFromEnd(HANDLE file, std::int64_t distance)
{
    LONG high = static_cast<LONG>(distance >> 32);
    const DWORD low = SetFilePointer(file, static_cast<LONG>(distance & 0xFFFFFFFF), &high, FILE_END);
    // The low half of a valid position can equal the failure result.
    if (low == INVALID_SET_FILE_POINTER && GetLastError() != NO_ERROR)
        return -1;
    return std::int64_t{high} << 32 | low;
}

/// The number of bytes up to the last line end in a text; 0 if there is none.
DWORD EndOfLastLine(const unsigned char* text, DWORD bytes)
{
    for (DWORD end = bytes - bytes % 2; end >= sizeof LineEnd; end -= 2) {
        if (std::memcmp(text + end - sizeof LineEnd, LineEnd, sizeof LineEnd) == 0)
            return end;
    }
    return 0;
}

}  // namespace

UniqueHandle logging::OpenFile(const utility::wstring& path, SECURITY_ATTRIBUTES* attributes)
{
    return UniqueHandle(CreateFileW(platform::Wide(path.c_str()), GENERIC_READ | GENERIC_WRITE,
                                    FILE_SHARE_READ | FILE_SHARE_WRITE, attributes, OPEN_ALWAYS, FILE_ATTRIBUTE_NORMAL,
                                    nullptr));
}

void logging::CutStump(HANDLE file)
{
    const std::int64_t size = SeekFromEnd(file, 0);
    if (size < 0)
        return;
    // The tail starts at a whole unit, even if the stump ends in the middle of one.
    const std::int64_t start = std::max<std::int64_t>(size - TailBytes, 0) & ~std::int64_t{1};
    unsigned char tail[TailBytes + 1];
    DWORD got = 0;
    if (SeekFromEnd(file, start - size) != start ||
        !ReadFile(file, tail, static_cast<DWORD>(size - start), &got, nullptr))
        return;
    const DWORD end = EndOfLastLine(tail, got);
    // A file without a line end near its end was not written by a log, and is not cut.
    if (end != 0 && end != got && SeekFromEnd(file, start + end - size) == start + end)
        SetEndOfFile(file);
}
