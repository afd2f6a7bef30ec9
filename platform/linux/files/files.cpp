// Files: opened, appended to, looked for, moved and deleted by their platform paths.
//
// Nobody opens a file here with leave to delete it, so an open file holds a shared lock (`flock`), and
// deleting or moving it fails while any process has it open: a log never moves away under its writers.
#include "base/descriptor.h"
#include "base/handle.h"
#include "base/lifecycle.h"
#include "files/paths.h"
#include "files/security.h"

#include <cerrno>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <sched.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <new>
#include <utility>

namespace {

using layer::Descriptor;
using layer::Fail;

class OpenFile final : public layer::Object {
public:
    OpenFile(Descriptor file, int flags) : Object(Kind::file), File(std::move(file)), Mode(flags & O_ACCMODE) {}

    bool Reads() const { return Mode != O_WRONLY; }
    bool Writes() const { return Mode != O_RDONLY; }

    /// Whether writes append, wherever the end is by then. A property of the open file, as that costs a write
    /// nothing; RWF_APPEND took a tenth more.
    bool SetAppending(bool appending)
    {
        if (appending == Appending)
            return true;
        const int flags = fcntl(File.get(), F_GETFL);
        if (flags < 0 || fcntl(File.get(), F_SETFL, appending ? flags | O_APPEND : flags & ~O_APPEND) != 0)
            return false;
        Appending = appending;
        return true;
    }

    const Descriptor File;

private:
    const int Mode;
    bool Appending = false;
};

class Search final : public layer::Object {
public:
    Search() : Object(Kind::search) {}
};

OpenFile* FindFile(HANDLE handle)
{
    return static_cast<OpenFile*>(layer::FindObject(handle, layer::Object::Kind::file));
}

/// The file of a handle that was opened for this use.
OpenFile* FindFileFor(bool (OpenFile::*use)() const, HANDLE handle)
{
    OpenFile* const file = FindFile(handle);
    return file == nullptr || (file->*use)() ? file : Fail(ERROR_ACCESS_DENIED, static_cast<OpenFile*>(nullptr));
}

/// The path on disk, or the reason why there is none; for want of memory too.
DWORD Translate(LPCWSTR path, std::string& translated)
{
    try {
        return layer::TranslatePath(path, translated);
    } catch (const std::bad_alloc&) {
        return ERROR_OUTOFMEMORY;
    }
}

/// What "no such file" means where the file itself may be missing: its folder is, or only the file.
DWORD OpenError(int error, const std::string& path, bool mayCreate)
{
    if (error != ENOENT)
        return layer::ErrorFromErrno(error);
    if (mayCreate)
        return ERROR_PATH_NOT_FOUND;
    struct stat status {};
    const std::size_t slash = path.rfind('/');
    const std::string folder = slash == std::string::npos ? "." : path.substr(0, slash + 1);
    return stat(folder.c_str(), &status) == 0 ? ERROR_FILE_NOT_FOUND : ERROR_PATH_NOT_FOUND;
}

// A write over the process's file size limit raises SIGXFSZ, which ends a process that has not thought of it.
// The layer answers with a disk-full code instead. A handler, and not SIG_IGN, as that would outlive `exec`.
void OnFileSize(int) {}

std::atomic<bool> fileSizeWatched{false};

void StopWatchingFileSize()
{
    struct sigaction current {};
    if (fileSizeWatched.exchange(false) && sigaction(SIGXFSZ, nullptr, &current) == 0 &&
        (current.sa_flags & SA_SIGINFO) == 0 && current.sa_handler == OnFileSize) {
        current.sa_handler = SIG_DFL;
        sigaction(SIGXFSZ, &current, nullptr);
    }
}

constinit layer::LifecycleHooks hooks{
    .AfterForkInChild = nullptr, .AtThreadEnd = nullptr, .AtUnload = StopWatchingFileSize};

void WatchFileSize()
{
    if (fileSizeWatched.exchange(true))
        return;
    layer::RegisterHooks(hooks);
    struct sigaction current {};
    if (sigaction(SIGXFSZ, nullptr, &current) != 0 || current.sa_handler != SIG_DFL)
        return;
    struct sigaction action {};
    action.sa_handler = OnFileSize;
    action.sa_flags = SA_RESTART;
    sigaction(SIGXFSZ, &action, nullptr);
}

int AccessFlags(DWORD access)
{
    const bool reads = (access & (GENERIC_READ | GENERIC_ALL)) != 0;
    const bool writes = (access & (GENERIC_WRITE | GENERIC_ALL)) != 0;
    return (writes ? (reads ? O_RDWR : O_WRONLY) : O_RDONLY) | O_CLOEXEC | O_NOCTTY;
}

/// Opens what is there and makes what is not. Without O_CREAT first: in a sticky folder another account's
/// file opens only so.
Descriptor OpenOrMake(const std::string& path, int flags, layer::FileMode mode, bool& existed)
{
    for (;;) {
        Descriptor opened(open(path.c_str(), flags));
        existed = static_cast<bool>(opened);
        if (opened || errno != ENOENT)
            return opened;
        Descriptor made(open(path.c_str(), flags | O_CREAT | O_EXCL, mode.Bits));
        if (made && mode.Exact)
            fchmod(made.get(), mode.Bits);
        if (made || errno != EEXIST)
            return made;
        // Made by somebody else just now; a dangling link is no file to open or make.
        struct stat status {};
        if (lstat(path.c_str(), &status) == 0 && S_ISLNK(status.st_mode) && stat(path.c_str(), &status) != 0)
            return made;
    }
}

Descriptor OpenAs(DWORD disposition, const std::string& path, int flags, layer::FileMode mode, bool& existed)
{
    switch (disposition) {
        case OPEN_ALWAYS: return OpenOrMake(path, flags, mode, existed);
        case CREATE_ALWAYS: return OpenOrMake(path, flags | O_TRUNC, mode, existed);
        case OPEN_EXISTING: return Descriptor(open(path.c_str(), flags));
        case TRUNCATE_EXISTING: return Descriptor(open(path.c_str(), flags | O_TRUNC));
        default: {
            Descriptor made(open(path.c_str(), flags | O_CREAT | O_EXCL, mode.Bits));
            if (made && mode.Exact)
                fchmod(made.get(), mode.Bits);
            return made;
        }
    }
}

/// Writes all bytes where the position is, or at the end. False leaves none of them.
bool WriteWhole(int descriptor, const char* data, std::size_t bytes)
{
    std::size_t done = 0;
    while (done < bytes) {
        const ssize_t count = write(descriptor, data + done, bytes - done);
        if (count > 0) {
            done += static_cast<std::size_t>(count);
        } else if (count == 0 || errno != EINTR) {
            const int error = count == 0 ? ENOSPC : errno;
            // Takes the part back, unless somebody has written behind it.
            const off_t end = lseek(descriptor, 0, SEEK_CUR);
            struct stat status {};
            if (done > 0 && fstat(descriptor, &status) == 0 && status.st_size == end &&
                ftruncate(descriptor, end - static_cast<off_t>(done)) == 0)
                lseek(descriptor, end - static_cast<off_t>(done), SEEK_SET);
            errno = error;
            return false;
        }
    }
    return true;
}

/// `IsOpenAnywhere` briefly takes the exclusive lock, so a few attempts are needed. On a file system without locks the
/// file is opened all the same; it can then be moved while it is open.
void LockShared(int file)
{
    constexpr int attempts = 100;
    for (int i = 0; i < attempts && flock(file, LOCK_SH | LOCK_NB) != 0 && errno == EWOULDBLOCK; ++i)
        sched_yield();
}

/// Whether a process has the file open through the platform.
bool IsOpenAnywhere(const std::string& path)
{
    const Descriptor file(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY));
    return file && flock(file.get(), LOCK_EX | LOCK_NB) != 0 && errno == EWOULDBLOCK;
}

BOOL Result(bool done)
{
    return done ? TRUE : Fail(layer::ErrorFromErrno(errno), FALSE);
}

/// Why a move failed: where nothing is missing at its source, the target's folder is.
DWORD MoveError(int error, const std::string& source)
{
    struct stat status {};
    const bool isThere = error == ENOENT && lstat(source.c_str(), &status) == 0;
    return isThere ? ERROR_PATH_NOT_FOUND : OpenError(error, source, false);
}

/// The platform counts from the year 1601 in steps of 100 ns.
FILETIME FileTime(const timespec& time)
{
    constexpr std::int64_t secondsTo1970 = 11'644'473'600;
    const auto steps = static_cast<std::uint64_t>((time.tv_sec + secondsTo1970) * 10'000'000 + time.tv_nsec / 100);
    return {static_cast<DWORD>(steps), static_cast<DWORD>(steps >> 32U)};
}

/// A move that replaces nothing, also where the file system cannot promise it in one step.
bool MoveWithoutReplacing(const std::string& from, const std::string& to)
{
    if (renameat2(AT_FDCWD, from.c_str(), AT_FDCWD, to.c_str(), RENAME_NOREPLACE) == 0)
        return true;
    if (errno != EINVAL && errno != ENOSYS)
        return false;
    struct stat status {};
    if (lstat(to.c_str(), &status) == 0) {
        errno = EEXIST;
        return false;
    }
    return rename(from.c_str(), to.c_str()) == 0;
}

}  // namespace

HANDLE CreateFileW(LPCWSTR path, DWORD access, DWORD, SECURITY_ATTRIBUTES* attributes, DWORD disposition, DWORD, HANDLE)
{
    const int flags = AccessFlags(access);
    const bool isKnown = disposition >= CREATE_NEW && disposition <= TRUNCATE_EXISTING;
    if (path == nullptr || !isKnown || (disposition == TRUNCATE_EXISTING && (flags & O_ACCMODE) == O_RDONLY))
        return Fail(ERROR_INVALID_PARAMETER, INVALID_HANDLE_VALUE);
    std::string translated;
    if (const DWORD error = Translate(path, translated); error != ERROR_SUCCESS)
        return Fail(error, INVALID_HANDLE_VALUE);
    bool existed = false;
    Descriptor file = OpenAs(disposition, translated, flags, layer::ModeOf(attributes), existed);
    if (!file) {
        if (disposition == CREATE_NEW && errno == EEXIST)
            return Fail(ERROR_FILE_EXISTS, INVALID_HANDLE_VALUE);
        const bool mayCreate = disposition != OPEN_EXISTING && disposition != TRUNCATE_EXISTING;
        return Fail(OpenError(errno, translated, mayCreate), INVALID_HANDLE_VALUE);
    }
    struct stat status {};
    if (fstat(file.get(), &status) != 0 || S_ISDIR(status.st_mode))
        return Fail(ERROR_ACCESS_DENIED, INVALID_HANDLE_VALUE);
    LockShared(file.get());
    WatchFileSize();
    auto* const object = new (std::nothrow) OpenFile(std::move(file), flags);
    if (object == nullptr)
        return Fail(ERROR_OUTOFMEMORY, INVALID_HANDLE_VALUE);
    const HANDLE handle = layer::OpenHandle(object);
    if (handle == nullptr)
        return INVALID_HANDLE_VALUE;
    return Fail(existed ? ERROR_ALREADY_EXISTS : ERROR_SUCCESS, handle);
}

DWORD SetFilePointer(HANDLE handle, LONG distance, LONG* distanceHigh, DWORD method)
{
    OpenFile* const file = FindFile(handle);
    if (file == nullptr)
        return INVALID_SET_FILE_POINTER;
    if (method > FILE_END)
        return Fail(ERROR_INVALID_PARAMETER, INVALID_SET_FILE_POINTER);
    constexpr int origins[] = {SEEK_SET, SEEK_CUR, SEEK_END};
    const std::int64_t whole = distanceHigh == nullptr
                                   ? std::int64_t{distance}
                                   : static_cast<std::int64_t>(std::uint64_t{static_cast<DWORD>(*distanceHigh)} << 32U |
                                                               static_cast<DWORD>(distance));
    const off_t before = distanceHigh == nullptr ? lseek(file->File.get(), 0, SEEK_CUR) : 0;
    const off_t position = lseek(file->File.get(), whole, origins[method]);
    if (position < 0 && errno == EINVAL && whole < 0)
        return Fail(ERROR_NEGATIVE_SEEK, INVALID_SET_FILE_POINTER);
    if (position < 0)
        return Fail(layer::ErrorFromErrno(errno), INVALID_SET_FILE_POINTER);
    if (distanceHigh == nullptr && position > std::int64_t{INVALID_SET_FILE_POINTER}) {
        lseek(file->File.get(), before, SEEK_SET);
        return Fail(ERROR_INVALID_PARAMETER, INVALID_SET_FILE_POINTER);
    }
    if (!file->SetAppending(method == FILE_END && whole == 0))
        return Fail(layer::ErrorFromErrno(errno), INVALID_SET_FILE_POINTER);
    if (distanceHigh != nullptr)
        *distanceHigh = static_cast<LONG>(position >> 32);
    return Fail(NO_ERROR, static_cast<DWORD>(position));
}

BOOL ReadFile(HANDLE handle, LPVOID data, DWORD bytes, DWORD* got, void*)
{
    *got = 0;
    const OpenFile* const file = FindFileFor(&OpenFile::Reads, handle);
    if (file == nullptr)
        return FALSE;
    while (*got < bytes) {
        const ssize_t count = read(file->File.get(), static_cast<char*>(data) + *got, bytes - *got);
        if (count == 0)
            break;
        if (count < 0 && errno != EINTR)
            return Result(false);
        *got += count > 0 ? static_cast<DWORD>(count) : 0;
    }
    return TRUE;
}

BOOL SetEndOfFile(HANDLE handle)
{
    const OpenFile* const file = FindFileFor(&OpenFile::Writes, handle);
    if (file == nullptr)
        return FALSE;
    const off_t position = lseek(file->File.get(), 0, SEEK_CUR);
    return Result(position >= 0 && ftruncate(file->File.get(), position) == 0);
}

BOOL WriteFile(HANDLE handle, LPCVOID data, DWORD bytes, DWORD* written, void*)
{
    if (written != nullptr)
        *written = 0;
    const OpenFile* const file = FindFileFor(&OpenFile::Writes, handle);
    if (file == nullptr)
        return FALSE;
    if (!WriteWhole(file->File.get(), static_cast<const char*>(data), bytes))
        return Fail(layer::ErrorFromErrno(errno), FALSE);
    if (written != nullptr)
        *written = bytes;
    return TRUE;
}

HANDLE FindFirstFileW(LPCWSTR path, WIN32_FIND_DATAW* found)
{
    if (path == nullptr || found == nullptr)
        return Fail(ERROR_INVALID_PARAMETER, INVALID_HANDLE_VALUE);
    std::string translated;
    if (const DWORD error = Translate(path, translated); error != ERROR_SUCCESS)
        return Fail(error, INVALID_HANDLE_VALUE);
    if (translated.ends_with('/'))  // which would ask for what is in a folder, by no name
        return Fail(ERROR_FILE_NOT_FOUND, INVALID_HANDLE_VALUE);
    struct stat status {};
    if (stat(translated.c_str(), &status) != 0)
        return Fail(OpenError(errno, translated, false), INVALID_HANDLE_VALUE);
    *found = WIN32_FIND_DATAW{};
    found->dwFileAttributes = S_ISDIR(status.st_mode) ? FILE_ATTRIBUTE_DIRECTORY : FILE_ATTRIBUTE_NORMAL;
    found->ftLastAccessTime = FileTime(status.st_atim);
    found->ftLastWriteTime = FileTime(status.st_mtim);
    found->nFileSizeHigh = static_cast<DWORD>(static_cast<std::uint64_t>(status.st_size) >> 32U);
    found->nFileSizeLow = static_cast<DWORD>(status.st_size);
    layer::TextView name(path);
    name.remove_prefix(std::min(name.size(), name.find_last_of(std::data({WCHAR{'\\'}, WCHAR{'/'}, WCHAR{0}})) + 1));
    name.copy(found->cFileName, std::size(found->cFileName) - 1);
    auto* const search = new (std::nothrow) Search;
    const HANDLE handle = search == nullptr ? nullptr : layer::OpenHandle(search);
    return handle == nullptr ? Fail(ERROR_OUTOFMEMORY, INVALID_HANDLE_VALUE) : handle;
}

BOOL FindClose(HANDLE search)
{
    return layer::CloseHandleOfKind(search, layer::Object::Kind::search) ? TRUE : FALSE;
}

BOOL DeleteFileW(LPCWSTR path)
{
    std::string translated;
    if (const DWORD error = Translate(path, translated); error != ERROR_SUCCESS)
        return Fail(error, FALSE);
    if (IsOpenAnywhere(translated))
        return Fail(ERROR_SHARING_VIOLATION, FALSE);
    return unlink(translated.c_str()) == 0 ? TRUE : Fail(OpenError(errno, translated, false), FALSE);
}

BOOL MoveFileW(LPCWSTR from, LPCWSTR to)
{
    std::string source;
    std::string target;
    if (const DWORD error = Translate(from, source); error != ERROR_SUCCESS)
        return Fail(error, FALSE);
    if (const DWORD error = Translate(to, target); error != ERROR_SUCCESS)
        return Fail(error, FALSE);
    if (IsOpenAnywhere(source))
        return Fail(ERROR_SHARING_VIOLATION, FALSE);
    return MoveWithoutReplacing(source, target) ? TRUE : Fail(MoveError(errno, source), FALSE);
}
