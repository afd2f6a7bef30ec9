// Files that several processes append to, and the move that takes an old one aside.
//
// A log must not lead anywhere else: it is a regular file with one link, and the last component of its path is no
// symbolic link. Whatever else is at the path stays untouched.
//
// On the platform an open file cannot be moved. An open file therefore holds a shared `flock` here, and a move fails
// while any process has the file open. Nothing in a file is ever removed or rewritten, except the part of a write that
// failed.
#include "base/descriptor.h"
#include "base/file_size_signal.h"
#include "base/handle.h"
#include "files/paths.h"
#include "files/security.h"
#include "text/debug_output.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sched.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <climits>
#include <new>
#include <string>
#include <utility>

namespace {

using layer::Descriptor;
using layer::Fail;
using layer::FileIdentity;
using platform::AppendResult;

// O_NONBLOCK: a named pipe must not wait for its other end. O_NOCTTY: a terminal must not become the process's
// controlling terminal. Both are refused, but only after they were opened.
constexpr int CommonFlags = O_RDWR | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY;

class OpenFile final : public layer::Object {
public:
    OpenFile(Descriptor file, const FileIdentity& identity)
        : Object(Kind::file), File(std::move(file)), Identity(identity)
    {
    }
    OpenFile(const OpenFile&) = delete;
    OpenFile& operator=(const OpenFile&) = delete;
    ~OpenFile() override
    {
        // A descriptor that now belongs to the program must not be closed.
        if (!Identity.IsOf(File.get()))
            File.Release();
    }

    int descriptor() const { return File.get(); }
    const FileIdentity& identity() const { return Identity; }

private:
    Descriptor File;
    const FileIdentity Identity;
};

OpenFile* FindFile(HANDLE handle)
{
    return static_cast<OpenFile*>(layer::FindObject(handle, layer::Object::Kind::file));
}

/// The system error for an open that failed. ENOENT for a file that would be created means that its folder is missing.
DWORD OpenError(int error)
{
    return error == ENOENT ? ERROR_PATH_NOT_FOUND : layer::ErrorFromErrno(error);
}

/// Why a log cannot be this file; ERROR_SUCCESS if it can.
DWORD CheckKind(const struct stat& status)
{
    if (S_ISLNK(status.st_mode))
        return ERROR_CANT_RESOLVE_FILENAME;
    if (!S_ISREG(status.st_mode))
        return ERROR_ACCESS_DENIED;
    return status.st_nlink > 1 ? ERROR_TOO_MANY_LINKS : ERROR_SUCCESS;
}

/// The reason in words, for debug output.
const char* ReasonOf(DWORD error, int number)
{
    switch (error) {
        case ERROR_CANT_RESOLVE_FILENAME: return "it is a symbolic link";
        case ERROR_TOO_MANY_LINKS: return "it has more than one link";
        default: return number != 0 ? std::strerror(number) : "it is no regular file";
    }
}

/// Reports a refused path in debug output, since the caller gets only a code. @return the code
DWORD Refuse(const std::string& path, DWORD error, int number)
{
    layer::DebugLine(path + " is not opened: " + ReasonOf(error, number));
    return error;
}

Descriptor CreateNew(const std::string& path, layer::FileMode mode)
{
    Descriptor created = layer::OpenHigh(path.c_str(), CommonFlags | O_APPEND | O_CREAT | O_EXCL, mode.Bits);
    if (created && mode.Exact)  // open(2) has applied the umask
        fchmod(created.get(), mode.Bits);
    return created;
}

/// Opens the file at `path` for appending, or creates it.
///
/// The first attempt has no O_CREAT: in a sticky folder the kernel may refuse O_CREAT for an existing file of another
/// account, whatever the file's mode permits (fs.protected_regular).
/// @param status receives the status of the file
DWORD OpenOrCreate(const std::string& path, layer::FileMode mode, Descriptor& file, struct stat& status)
{
    // Another process may create and remove the file again and again, and a file system may count no links.
    constexpr int attempts = 100;
    for (int i = 0; i < attempts; ++i) {
        // Before the opening too: to open a device can have an effect.
        if (lstat(path.c_str(), &status) == 0) {
            if (const DWORD error = CheckKind(status); error != ERROR_SUCCESS)
                return Refuse(path, error, 0);
        }
        file = layer::OpenHigh(path.c_str(), CommonFlags | O_APPEND);
        if (!file && errno == ENOENT) {
            file = CreateNew(path, mode);
            if (!file && errno == EEXIST)
                continue;  // another process created the file meanwhile
        }
        if (!file || fstat(file.get(), &status) != 0)
            return Refuse(path, OpenError(errno), errno);
        // Without a link it was removed meanwhile.
        if (status.st_nlink == 0)
            continue;
        const DWORD error = CheckKind(status);
        return error == ERROR_SUCCESS ? error : Refuse(path, error, 0);
    }
    file = Descriptor();
    return Refuse(path, ERROR_BUSY, EBUSY);
}

/// Takes the shared lock that marks a file as open.
///
/// A move briefly holds the exclusive lock, so a few attempts may be needed. On a file system without locks the file
/// opens all the same; it can then be moved while it is open.
void LockShared(int file)
{
    constexpr int attempts = 100;
    for (int i = 0; i < attempts && flock(file, LOCK_SH | LOCK_NB) != 0 && errno == EWOULDBLOCK; ++i)
        sched_yield();
}

/// Takes back the first `done` bytes of a write that failed, unless another process has appended after them.
/// @return whether they are gone
bool TakeBack(int file, std::size_t done)
{
    const off_t end = lseek(file, 0, SEEK_CUR);
    struct stat status {};
    return fstat(file, &status) == 0 && status.st_size == end && ftruncate(file, end - static_cast<off_t>(done)) == 0;
}

/// Writes the rest of an append whose first write returned `count`.
AppendResult FinishAppend(int file, const char* data, std::size_t bytes, ssize_t count)
{
    std::size_t done = 0;
    for (;;) {
        if (count > 0)
            done += static_cast<std::size_t>(count);
        if (done == bytes)
            return AppendResult::whole;
        if (count == 0 || (count < 0 && errno != EINTR)) {
            const int error = count == 0 ? ENOSPC : errno;  // a write of nothing sets no error
            const bool partIsLeft = done > 0 && !TakeBack(file, done);
            SetLastError(layer::ErrorFromErrno(error));
            return partIsLeft ? AppendResult::part : AppendResult::nothing;
        }
        count = write(file, data + done, bytes - done);
    }
}

/// Whether the file can be taken aside: a log with content that no process has open. Takes its exclusive lock through
/// `file`, so that it stays so until the file is closed.
DWORD PrepareMove(const std::string& path, Descriptor& file)
{
    struct stat status {};
    if (lstat(path.c_str(), &status) != 0)
        return layer::ErrorFromErrno(errno);
    if (const DWORD error = CheckKind(status); error != ERROR_SUCCESS)
        return error;
    if (status.st_size == 0)
        return ERROR_FILE_NOT_FOUND;
    // Opened for writing, since a network file system grants an exclusive lock only then.
    file = layer::OpenHigh(path.c_str(), CommonFlags | O_APPEND);
    if (!file)
        return layer::ErrorFromErrno(errno);
    if (!FileIdentity(status).IsOf(file.get()))
        return ERROR_SHARING_VIOLATION;
    // A file system without locks cannot tell; there the mutex of the log is the only protection.
    return flock(file.get(), LOCK_EX | LOCK_NB) != 0 && errno == EWOULDBLOCK ? ERROR_SHARING_VIOLATION : ERROR_SUCCESS;
}

}  // namespace

namespace platform {

HANDLE OpenForAppending(LPCWSTR path, SECURITY_ATTRIBUTES* attributes)
{
    std::string translated;
    if (const DWORD error = layer::TranslatePath(path, translated); error != ERROR_SUCCESS)
        return Fail(error, HANDLE{nullptr});
    Descriptor file;
    struct stat status {};
    if (const DWORD error = OpenOrCreate(translated, layer::ModeOf(attributes), file, status); error != ERROR_SUCCESS)
        return Fail(error, HANDLE{nullptr});
    LockShared(file.get());
    layer::HandleFileSizeSignal();
    auto* const object = new (std::nothrow) OpenFile(std::move(file), FileIdentity(status));
    return object != nullptr ? layer::OpenHandle(object) : Fail(ERROR_OUTOFMEMORY, HANDLE{nullptr});
}

AppendResult AppendToFile(HANDLE handle, LPCVOID data, DWORD bytes)
{
    const OpenFile* const file = FindFile(handle);
    if (file == nullptr)
        return AppendResult::nothing;
    const ssize_t count = write(file->descriptor(), data, bytes);
    if (count == static_cast<ssize_t>(bytes))
        return AppendResult::whole;
    return FinishAppend(file->descriptor(), static_cast<const char*>(data), bytes, count);
}

bool ReadEndOfFile(HANDLE handle, void* buffer, DWORD bytes, ULONGLONG* size)
{
    const OpenFile* const file = FindFile(handle);
    struct stat status {};
    if (file == nullptr)
        return false;
    if (fstat(file->descriptor(), &status) != 0)
        return Fail(layer::ErrorFromErrno(errno), false);
    *size = static_cast<ULONGLONG>(status.st_size);
    const auto wanted = static_cast<ssize_t>(std::min<ULONGLONG>(bytes, *size));
    const ssize_t got = pread(file->descriptor(), buffer, static_cast<std::size_t>(wanted), status.st_size - wanted);
    return got == wanted ? true : Fail(got < 0 ? layer::ErrorFromErrno(errno) : ERROR_IO_DEVICE, false);
}

FileState StateOfFile(HANDLE handle, LPCWSTR path)
{
    const OpenFile* const file = FindFile(handle);
    if (file == nullptr || !file->identity().IsOf(file->descriptor()))
        return FileState::lost;
    std::string translated;
    struct stat status {};
    if (layer::TranslatePath(path, translated) != ERROR_SUCCESS)
        return FileState::current;
    if (lstat(translated.c_str(), &status) != 0)
        return errno == ENOENT || errno == ENOTDIR ? FileState::moved : FileState::current;
    return FileIdentity(status) == file->identity() ? FileState::current : FileState::moved;
}

bool MoveFileAside(LPCWSTR from, LPCWSTR to)
{
    std::string source;
    std::string target;
    if (const DWORD error = layer::TranslatePath(from, source); error != ERROR_SUCCESS)
        return Fail(error, false);
    if (const DWORD error = layer::TranslatePath(to, target); error != ERROR_SUCCESS)
        return Fail(error, false);
    Descriptor file;
    if (const DWORD error = PrepareMove(source, file); error != ERROR_SUCCESS)
        return Fail(error, false);
    return rename(source.c_str(), target.c_str()) == 0 ? true : Fail(layer::ErrorFromErrno(errno), false);
}

}  // namespace platform
