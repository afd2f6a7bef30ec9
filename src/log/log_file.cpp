// The opening of the log file: its path, the mutex of the family, the rollover.
#include "log/codes.h"
#include "settings/tag_specification.h"
#include "system.h"
#include "tessmaru/log.h"
#include "tessmaru/settings.h"

#include <algorithm>
#include <cstring>

namespace utilities {

namespace {

constexpr std::size_t MaxPathUnits = 512;

/// A key of the registry, closed with its owner.
class OpenKey {
public:
    explicit OpenKey(const utility::wstring& path)
        : Status(RegOpenKeyExW(HKEY_LOCAL_MACHINE, platform::Wide(path.c_str()), 0, KEY_READ, &Key))
    {
    }
    OpenKey(const OpenKey&) = delete;
    OpenKey& operator=(const OpenKey&) = delete;
    ~OpenKey()
    {
        if (Status == 0)
            RegCloseKey(Key);
    }

    LSTATUS status() const { return Status; }

    LSTATUS Read(const unsigned short* name, void* data, DWORD& bytes) const
    {
        return RegQueryValueExW(Key, platform::Wide(name), nullptr, nullptr, static_cast<BYTE*>(data), &bytes);
    }

private:
    HKEY Key = nullptr;
    const LSTATUS Status;
};

/// Reads "FilePath" into `path`, which holds MaxPathUnits and a terminator and starts as zeros.
LSTATUS ReadFilePath(const utility::wstring& keyPath, unsigned short* path)
{
    const OpenKey key(keyPath);
    if (key.status() != 0)
        return key.status();
    DWORD bytes = 0;
    LSTATUS status = key.Read(u"FilePath"_w, nullptr, bytes);
    if (status != 0)
        return status;
    bytes = (MaxPathUnits + 1) * sizeof(unsigned short);
    status = key.Read(u"FilePath"_w, path, bytes);
    if (status != 0)
        return status;
    // The room is full and nothing ends the text: it is longer than a path may be.
    if (std::find(path, path + MaxPathUnits + 1, u'\0') == path + MaxPathUnits + 1)
        return LSTATUS{ERROR_MORE_DATA};
    // No path is as good as no value.
    return path[0] == 0 ? LSTATUS{ERROR_FILE_NOT_FOUND} : LSTATUS{ERROR_SUCCESS};
}

/// Moves to a place by its distance from the end of a file. The position, or -1.
std::int64_t SeekFromEnd(HANDLE file, std::int64_t distance)
{
    LONG high = static_cast<LONG>(distance >> 32);
    const DWORD low = SetFilePointer(file, static_cast<LONG>(distance & 0xFFFFFFFF), &high, FILE_END);
    if (low == INVALID_SET_FILE_POINTER && GetLastError() != NO_ERROR)
        return -1;
    return std::int64_t{high} << 32 | low;
}

}  // namespace

LONG CLog::initLogFile()
{
    if (const LONG code = GetLogFileName(&LogFileName); code < 0)
        return code;
    int firstOpener = 0;
    if (const LONG code = initMutex(&firstOpener); code < 0)
        return code;
    // A later opener gets to the file only when the first has rolled over, opened and let go.
    // The last writer may have been killed; but a file that others are writing to is not to be cut.
    const bool mayHaveStump =
        firstOpener != 0 ? !MoveOldFileAside() : WaitForSingleObject(LogMutex, INFINITE) == WAIT_ABANDONED;
    const HANDLE file = CreateFileW(platform::Wide(LogFileName.c_str()), GENERIC_READ | GENERIC_WRITE,
                                    FILE_SHARE_READ | FILE_SHARE_WRITE, SecurityDescriptor.getSecurityAttributes(),
                                    OPEN_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr);
    LONG code = 0;
    if (file != INVALID_HANDLE_VALUE)
        LogFile = file;
    else
        code = log_codes::LastError();
    if (LogFile != nullptr && mayHaveStump)
        CutStump();
    ReleaseMutex(LogMutex);
    return code;
}

LONG CLog::initMutex(int* firstOpener)
{
    utility::wstring name = LogFileName + u".Mutex"_w;
    std::replace(name.begin(), name.end(), u'\\', u'_');
    // Every account may do everything with the mutex; the rules of the file are for the file alone.
    SECURITY_DESCRIPTOR descriptor{};
    InitializeSecurityDescriptor(&descriptor, SECURITY_DESCRIPTOR_REVISION);
    SetSecurityDescriptorDacl(&descriptor, TRUE, nullptr, FALSE);
    SECURITY_ATTRIBUTES attributes{sizeof(SECURITY_ATTRIBUTES), &descriptor, FALSE};
    LogMutex = CreateMutexW(&attributes, TRUE, platform::Wide(name.c_str()));
    if (LogMutex == nullptr)
        return log_codes::LastError();
    *firstOpener = GetLastError() == ERROR_ALREADY_EXISTS ? 0 : 1;
    return 0;
}

/// Moves the file that the last family left to "Previous " and its name. Where that fails, the file stays and
/// is appended to. False if it stays although nobody has it open; somebody may, who knows it under another name.
bool CLog::MoveOldFileAside() const
{
    WIN32_FIND_DATAW found;
    const HANDLE search = FindFirstFileW(platform::Wide(LogFileName.c_str()), &found);
    if (search == INVALID_HANDLE_VALUE)
        return true;
    FindClose(search);
    if ((found.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) != 0)
        return true;
    const std::size_t separator = LogFileName.find_last_of(u"\\/"_w);
    utility::wstring previous = LogFileName;
    previous.insert(separator == utility::wstring::npos ? 0 : separator + 1, u"Previous "_w);
    DeleteFileW(platform::Wide(previous.c_str()));
    return MoveFileW(platform::Wide(LogFileName.c_str()), platform::Wide(previous.c_str())) ||
           GetLastError() == ERROR_SHARING_VIOLATION;
}

/// A writer that is killed can leave the front of its record, as the system may end a write between two pages. What
/// stands behind the last line end of the file goes then, so that the next record starts a line. A file without a
/// line end near its end is none of ours to cut.
void CLog::CutStump() const
{
    constexpr std::int64_t window = 0x4000;
    constexpr unsigned char lineEnd[] = {'\r', 0, '\n', 0};
    const std::int64_t size = SeekFromEnd(LogFile, 0);
    if (size < 0)
        return;
    // The window starts at a unit, wherever the stump ends.
    const std::int64_t start = std::max<std::int64_t>(size - window, 0) & ~std::int64_t{1};
    unsigned char tail[window + 1];
    DWORD got = 0;
    if (SeekFromEnd(LogFile, start - size) != start ||
        !ReadFile(LogFile, tail, static_cast<DWORD>(size - start), &got, nullptr))
        return;
    for (DWORD end = got - got % 2; end >= sizeof lineEnd; end -= 2) {
        if (std::memcmp(tail + end - sizeof lineEnd, lineEnd, sizeof lineEnd) != 0)
            continue;
        if (end != got && SeekFromEnd(LogFile, start + end - size) == start + end)
            SetEndOfFile(LogFile);
        return;
    }
}

LONG CLog::GetLogFileName(utility::wstring* name)
{
    if (RegLogfilePath.empty())
        RegLogfilePath = CSettingsRegistry().getLogRegKey();
    name->clear();
    unsigned short path[MaxPathUnits + 1]{};
    if (const LSTATUS status = ReadFilePath(RegLogfilePath, path); status != 0)
        return HRESULT_FROM_WIN32(static_cast<DWORD>(status));
    *name = path;
    return 0;
}

}  // namespace utilities
