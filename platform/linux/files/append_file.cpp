// Files that several processes append to, and the move that takes an old one aside.
//
// A log must not lead anywhere else: it is a regular file with one link, and the last component of its path is no
// symbolic link. Whatever else is at the path stays untouched.
//
// On the platform an open file cannot be moved. An open file therefore holds a shared lock of its byte 0 here, and a
// move needs the exclusive lock. Nothing in a file is ever removed or rewritten, except the part of a write that
// failed, and this only under the exclusive lock: no other process has the file open then, whatever mutex it uses.
#include "base/byte_lock.h"
#include "base/descriptor.h"
#include "base/file_size_signal.h"
#include "base/handle.h"
#include "base/lifecycle.h"
#include "files/paths.h"
#include "files/security.h"
#include "text/debug_output.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <climits>
#include <ctime>
#include <new>
#include <string>
#include <utility>

namespace {

using layer::ByteLock;
using layer::Descriptor;
using layer::Fail;
using layer::FileIdentity;
using platform::AppendResult;

// O_NONBLOCK: a named pipe must not wait for its other end. O_NOCTTY: a terminal must not become the process's
// controlling terminal. Both are refused, but only after they were opened.
constexpr int CommonFlags = O_RDWR | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY;

constexpr off_t OpenByte = 0;

// How long an opening waits for a process that moves the file or takes a part back. Both take no longer than a few
// calls of the system, but any account that can write to the file can hold the lock for ever.
constexpr DWORD OpeningMilliseconds = 1'000;

class OpenFile final : public layer::Object {
public:
    OpenFile(Descriptor file, const FileIdentity& identity)
        : Object(Kind::file), File(std::move(file)), Identity(identity), Forks(layer::ForkCount())
    {
    }
    OpenFile(const OpenFile&) = delete;
    OpenFile& operator=(const OpenFile&) = delete;
    ~OpenFile() override { ForgetLostDescriptor(); }

    /// A program may close all descriptors. The number of this one can then belong to a file of the program, or to the
    /// same log that was opened again, and must not be closed. @return whether the descriptor is lost
    bool ForgetLostDescriptor()
    {
        if (!layer::IsLost(File.get(), Identity))
            return false;
        File.Release();
        return true;
    }

    int descriptor() const { return File.get(); }
    const FileIdentity& identity() const { return Identity; }

    /// Whether another process shares the open file description, and with it the lock.
    bool isShared() const { return Forks != layer::ForkCount(); }

private:
    Descriptor File;
    const FileIdentity Identity;
    const std::uint32_t Forks;
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
        case ERROR_TIMEOUT: return "another process keeps it locked";
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

/// Takes the shared lock that marks a file as open. A file system without locks opens the file all the same: there it
/// can be moved while it is open, and no part is taken back.
/// @return false if another process keeps the file locked
bool LockShared(int file)
{
    layer::Deadline deadline(OpeningMilliseconds);
    return layer::WaitForByteLock(file, OpenByte, ByteLock::shared, deadline) || errno != ETIMEDOUT;
}

/// Opens the file at `path` and marks it as open. A process with another mutex for the same file may move the file away
/// before it is marked; then the path is opened again.
DWORD OpenAndLock(const std::string& path, layer::FileMode mode, Descriptor& file, struct stat& status)
{
    constexpr int attempts = 100;  // more than other processes can spoil
    for (int i = 0; i < attempts; ++i) {
        if (const DWORD error = OpenOrCreate(path, mode, file, status); error != ERROR_SUCCESS)
            return error;
        if (!LockShared(file.get()))
            return Refuse(path, ERROR_TIMEOUT, 0);
        struct stat named {};
        if (lstat(path.c_str(), &named) == 0 && FileIdentity(named) == FileIdentity(status))
            break;
    }
    return ERROR_SUCCESS;
}

/// Takes back the first `done` bytes of a write that failed, which start at `start`. They stay if another process could
/// append after them, because it has the file open or shares the lock of this process.
/// @return whether they are gone
bool TakeBack(const OpenFile& open, off_t start, std::size_t done)
{
    const int file = open.descriptor();
    if (!open.identity().IsOf(file) || open.isShared() || !layer::SetByteLock(file, OpenByte, ByteLock::exclusive))
        return false;
    struct stat status {};
    const bool isGone =
        fstat(file, &status) == 0 && status.st_size == start + static_cast<off_t>(done) && ftruncate(file, start) == 0;
    layer::SetByteLock(file, OpenByte, ByteLock::shared);
    return isGone;
}

/// Writes the rest of an append whose first write returned `count`.
AppendResult FinishAppend(const OpenFile& open, const char* data, std::size_t bytes, ssize_t count)
{
    const int file = open.descriptor();
    std::size_t done = 0;
    off_t start = 0;
    for (;;) {
        if (count > 0) {
            const off_t end = lseek(file, 0, SEEK_CUR);
            if (done == 0)
                start = end - count;
            done += static_cast<std::size_t>(count);
            // A process with another mutex has appended between two writes.
            if (end != start + static_cast<off_t>(done))
                return Fail(ERROR_IO_DEVICE, AppendResult::part);
        }
        if (done == bytes)
            return AppendResult::whole;
        if (count == 0 || (count < 0 && errno != EINTR)) {
            const int error = count == 0 ? ENOSPC : errno;  // a write of nothing sets no error
            const bool partIsLeft = done > 0 && !TakeBack(open, start, done);
            return Fail(layer::ErrorFromErrno(error), partIsLeft ? AppendResult::part : AppendResult::nothing);
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
    // Opened for writing, since only then it can get the exclusive lock.
    file = layer::OpenHigh(path.c_str(), CommonFlags | O_APPEND);
    if (!file)
        return layer::ErrorFromErrno(errno);
    // On a file system without locks the mutex of the log is the only protection.
    if (!layer::SetByteLock(file.get(), OpenByte, ByteLock::exclusive) && layer::IsLockConflict(errno))
        return ERROR_SHARING_VIOLATION;
    // Compared under the lock: before, a process with another mutex for the same file may have moved it and opened a
    // new one, which this process must not move.
    const bool isAtPath = lstat(path.c_str(), &status) == 0 && FileIdentity(status).IsOf(file.get());
    return isAtPath ? ERROR_SUCCESS : ERROR_SHARING_VIOLATION;
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
    if (const DWORD error = OpenAndLock(translated, layer::ModeOf(attributes), file, status); error != ERROR_SUCCESS)
        return Fail(error, HANDLE{nullptr});
    layer::HandleFileSizeSignal();
    if (!layer::WatchForks())
        return Fail(ERROR_OUTOFMEMORY, HANDLE{nullptr});
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
    return FinishAppend(*file, static_cast<const char*>(data), bytes, count);
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
    OpenFile* const file = FindFile(handle);
    // Forgotten now: when the path is opened again, the new descriptor can get the same number.
    if (file == nullptr || file->ForgetLostDescriptor())
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
