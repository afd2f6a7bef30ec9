// Files that several processes append to, over the Win32 API. The system keeps an open file at its path, and extends a
// file before it writes to it, so that a full disk leaves no part of a write.
#include "system.h"

namespace {

/// Moves the position by a distance from the end. @return the new position, or -1 with the last error set
LONGLONG SeekFromEnd(HANDLE file, LONGLONG distance)
{
    LARGE_INTEGER offset;
    LARGE_INTEGER position;
    offset.QuadPart = distance;
    return SetFilePointerEx(file, offset, &position, FILE_END) ? position.QuadPart : -1;
}

/// Whether the file can be a log: neither a folder nor a link, and no device.
bool CheckKind(HANDLE file)
{
    BY_HANDLE_FILE_INFORMATION information;
    if (GetFileType(file) != FILE_TYPE_DISK || !GetFileInformationByHandle(file, &information)) {
        SetLastError(ERROR_ACCESS_DENIED);
        return false;
    }
    if ((information.dwFileAttributes & FILE_ATTRIBUTE_REPARSE_POINT) != 0) {
        SetLastError(ERROR_CANT_RESOLVE_FILENAME);
        return false;
    }
    if (information.nNumberOfLinks > 1) {
        SetLastError(ERROR_TOO_MANY_LINKS);
        return false;
    }
    return true;
}

}  // namespace

namespace platform {

HANDLE OpenForAppending(LPCWSTR path, SECURITY_ATTRIBUTES* attributes)
{
    // The flag opens a link itself instead of its target. For any other file it has no effect.
    const HANDLE file = CreateFileW(path, GENERIC_READ | GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_WRITE, attributes,
                                    OPEN_ALWAYS, FILE_ATTRIBUTE_NORMAL | FILE_FLAG_OPEN_REPARSE_POINT, nullptr);
    if (file == INVALID_HANDLE_VALUE)
        return nullptr;
    if (CheckKind(file))
        return file;
    const DWORD error = GetLastError();
    CloseHandle(file);
    SetLastError(error);
    return nullptr;
}

AppendResult AppendToFile(HANDLE file, LPCVOID data, DWORD bytes)
{
    const LONGLONG start = SeekFromEnd(file, 0);
    DWORD written = 0;
    if (start < 0)
        return AppendResult::nothing;
    const bool succeeded = WriteFile(file, data, bytes, &written, nullptr) != FALSE;
    if (succeeded && written == bytes)
        return AppendResult::whole;
    if (succeeded)
        SetLastError(ERROR_DISK_FULL);
    return written == 0 ? AppendResult::nothing : AppendResult::part;
}

bool ReadEndOfFile(HANDLE file, void* buffer, DWORD bytes, ULONGLONG* size)
{
    const LONGLONG end = SeekFromEnd(file, 0);
    if (end < 0)
        return false;
    *size = static_cast<ULONGLONG>(end);
    const LONGLONG wanted = end < LONGLONG{bytes} ? end : LONGLONG{bytes};
    DWORD got = 0;
    return SeekFromEnd(file, -wanted) >= 0 && ReadFile(file, buffer, static_cast<DWORD>(wanted), &got, nullptr) &&
           LONGLONG{got} == wanted;
}

FileState StateOfFile(HANDLE, LPCWSTR)
{
    // The file is open without leave to delete it, so it cannot be renamed or deleted.
    return FileState::current;
}

bool MoveFileAside(LPCWSTR from, LPCWSTR to)
{
    constexpr DWORD noLog = FILE_ATTRIBUTE_DIRECTORY | FILE_ATTRIBUTE_DEVICE | FILE_ATTRIBUTE_REPARSE_POINT;
    WIN32_FILE_ATTRIBUTE_DATA found;
    if (!GetFileAttributesExW(from, GetFileExInfoStandard, &found))
        return false;
    if ((found.dwFileAttributes & noLog) != 0 || (found.nFileSizeHigh == 0 && found.nFileSizeLow == 0)) {
        SetLastError(ERROR_FILE_NOT_FOUND);
        return false;
    }
    return MoveFileExW(from, to, MOVEFILE_REPLACE_EXISTING) != FALSE;
}

}  // namespace platform
