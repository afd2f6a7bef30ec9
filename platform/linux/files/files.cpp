// Opens, reads, writes, finds, moves and deletes files by their platform paths.
//
// The library never opens a file with FILE_SHARE_DELETE. An open file therefore holds a shared `flock`, and a deletion
// or a move fails while any process has the file open: a log is never moved away from its writers.
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
#include <atomic>
#include <climits>
#include <iterator>
#include <new>
#include <string>
#include <utility>

namespace {

using layer::Descriptor;
using layer::Fail;

/// An open file with its access mode. A use that the mode does not permit fails with ERROR_ACCESS_DENIED; the kernel
/// would report EBADF, which is the error of a handle that is not open.
class OpenFile final : public layer::Object {
public:
    OpenFile(Descriptor file, int flags) : Object(Kind::file), File(std::move(file)), Mode(flags & O_ACCMODE) {}

    bool CanRead() const { return Mode != O_WRONLY; }
    bool CanWrite() const { return Mode != O_RDONLY; }

    /// Decides whether each later write goes to the end that the file has at that moment. O_APPEND is set on the open
    /// file, where it costs a write nothing; RWF_APPEND made each write a tenth slower.
    /// @return false with `errno` set
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

/// What the handle of FindFirstFileW refers to. It holds no state: a path names one file, and the layer has no
/// FindNextFileW.
class Search final : public layer::Object {
public:
    Search() : Object(Kind::search) {}
};

OpenFile* FindFile(HANDLE handle)
{
    return static_cast<OpenFile*>(layer::FindObject(handle, layer::Object::Kind::file));
}

/// @param access  OpenFile::CanRead or OpenFile::CanWrite
/// @return the file of a handle with this access, or null with the last error set
OpenFile* FindFileWithAccess(bool (OpenFile::*access)() const, HANDLE handle)
{
    OpenFile* const file = FindFile(handle);
    return file == nullptr || (file->*access)() ? file : Fail(ERROR_ACCESS_DENIED, static_cast<OpenFile*>(nullptr));
}

/// The system error for an open that failed. ENOENT does not say what is missing: for a missing folder it becomes
/// ERROR_PATH_NOT_FOUND, for a missing file in an existing folder ERROR_FILE_NOT_FOUND.
/// @param path       a translated path, so shorter than PATH_MAX
/// @param mayCreate  whether the call would have created the file; then only a folder can be missing
DWORD OpenError(int error, const std::string& path, bool mayCreate)
{
    if (error != ENOENT)
        return layer::ErrorFromErrno(error);
    if (mayCreate)
        return ERROR_PATH_NOT_FOUND;
    struct stat status {};
    char folder[PATH_MAX] = ".";
    if (const std::size_t slash = path.rfind('/'); slash != std::string::npos)
        folder[path.copy(folder, slash + 1)] = '\0';
    return stat(folder, &status) == 0 ? ERROR_FILE_NOT_FOUND : ERROR_PATH_NOT_FOUND;
}

// A write beyond the process's file size limit raises SIGXFSZ, which ends the process by default. With a handler the
// write fails with EFBIG, which becomes ERROR_DISK_FULL. SIG_IGN would do the same, but it would survive `exec` and so
// change the programs that the process starts.
void OnFileSizeSignal(int) {}

std::atomic<bool> fileSizeSignalHandled{false};

/// Restores the default action, unless the program has installed its own handler since then.
void RestoreFileSizeSignal()
{
    struct sigaction current {};
    if (fileSizeSignalHandled.exchange(false) && sigaction(SIGXFSZ, nullptr, &current) == 0 &&
        (current.sa_flags & SA_SIGINFO) == 0 && current.sa_handler == OnFileSizeSignal) {
        current.sa_handler = SIG_DFL;
        sigaction(SIGXFSZ, &current, nullptr);
    }
}

constinit layer::LifecycleHooks hooks{
    .AfterForkInChild = nullptr, .AtThreadEnd = nullptr, .AtUnload = RestoreFileSizeSignal};

/// Installs the handler once per process. A program that has set its own action keeps it.
void HandleFileSizeSignal()
{
    if (fileSizeSignalHandled.exchange(true))
        return;
    layer::RegisterHooks(hooks);
    struct sigaction current {};
    if (sigaction(SIGXFSZ, nullptr, &current) != 0 || current.sa_handler != SIG_DFL)
        return;
    struct sigaction action {};
    action.sa_handler = OnFileSizeSignal;
    action.sa_flags = SA_RESTART;
    sigaction(SIGXFSZ, &action, nullptr);
}

/// The flags of open(2) for the access rights of CreateFileW.
/// O_NOCTTY: a terminal that is opened as a log must not become the process's controlling terminal.
int AccessFlags(DWORD access)
{
    const bool reads = (access & (GENERIC_READ | GENERIC_ALL)) != 0;
    const bool writes = (access & (GENERIC_WRITE | GENERIC_ALL)) != 0;
    return (writes ? (reads ? O_RDWR : O_WRONLY) : O_RDONLY) | O_CLOEXEC | O_NOCTTY;
}

/// Creates a file that must not exist yet.
Descriptor CreateNew(const std::string& path, int flags, layer::FileMode mode)
{
    Descriptor created(open(path.c_str(), flags | O_CREAT | O_EXCL, mode.Bits));
    if (created && mode.Exact)  // open(2) has applied the umask
        fchmod(created.get(), mode.Bits);
    return created;
}

/// Opens a file, or creates it if it does not exist.
///
/// The first attempt has no O_CREAT: in a sticky folder the kernel may refuse O_CREAT for an existing file of another
/// account, whatever the file's mode permits (fs.protected_regular).
/// @param existed  receives whether the file existed
Descriptor OpenOrCreate(const std::string& path, int flags, layer::FileMode mode, bool& existed)
{
    for (;;) {
        Descriptor opened(open(path.c_str(), flags));
        existed = static_cast<bool>(opened);
        if (opened || errno != ENOENT)
            return opened;
        Descriptor created = CreateNew(path, flags, mode);
        if (created || errno != EEXIST)
            return created;
        // Another process created the file between the two calls, so the next round opens it. A dangling symbolic
        // link also gives EEXIST, but in every round.
        struct stat status {};
        if (lstat(path.c_str(), &status) == 0 && S_ISLNK(status.st_mode) && stat(path.c_str(), &status) != 0)
            return created;
    }
}

/// @param disposition  one of the values of CreateFileW
/// @param existed      receives whether OPEN_ALWAYS or CREATE_ALWAYS found the file
Descriptor OpenWithDisposition(DWORD disposition, const std::string& path, int flags, layer::FileMode mode,
                               bool& existed)
{
    switch (disposition) {
        case OPEN_ALWAYS: return OpenOrCreate(path, flags, mode, existed);
        case CREATE_ALWAYS: return OpenOrCreate(path, flags | O_TRUNC, mode, existed);
        case OPEN_EXISTING: return Descriptor(open(path.c_str(), flags));
        case TRUNCATE_EXISTING: return Descriptor(open(path.c_str(), flags | O_TRUNC));
        default: return CreateNew(path, flags, mode);
    }
}

/// Writes all bytes at the current position, or at the end if the file appends. A write that fails half-way removes its
/// own bytes again, so that a full disk leaves no half of a record.
/// @return false with `errno` set
bool WriteAll(int descriptor, const char* data, std::size_t bytes)
{
    std::size_t done = 0;
    while (done < bytes) {
        const ssize_t count = write(descriptor, data + done, bytes - done);
        if (count > 0) {
            done += static_cast<std::size_t>(count);
        } else if (count == 0 || errno != EINTR) {
            const int error = count == 0 ? ENOSPC : errno;  // a write of nothing sets no error
            // If the file does not end here, another process has written after this part; then the part stays.
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

/// Takes the shared lock that marks a file as open.
///
/// `IsOpenAnywhere` briefly takes the exclusive lock, so a few attempts may be needed. On a file system without locks
/// the file opens all the same; it can then be moved while it is open.
void LockShared(int file)
{
    constexpr int attempts = 100;
    for (int i = 0; i < attempts && flock(file, LOCK_SH | LOCK_NB) != 0 && errno == EWOULDBLOCK; ++i)
        sched_yield();
}

/// Whether any process, this one included, has the file open through this layer.
///
/// The result may be outdated when the caller moves or deletes the file. Processes that share a file have to serialise
/// opening and moving it, as the log does with its mutex. O_NONBLOCK: a named pipe must not wait for its other end.
bool IsOpenAnywhere(const std::string& path)
{
    const Descriptor file(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY));
    return file && flock(file.get(), LOCK_EX | LOCK_NB) != 0 && errno == EWOULDBLOCK;
}

/// The result of a call whose failure is in `errno`.
BOOL BoolResult(bool done)
{
    return done ? TRUE : Fail(layer::ErrorFromErrno(errno), FALSE);
}

/// The system error for a move that failed. ENOENT for an existing source means that the target's folder is
/// missing.
DWORD MoveError(int error, const std::string& source)
{
    struct stat status {};
    const bool sourceExists = error == ENOENT && lstat(source.c_str(), &status) == 0;
    return sourceExists ? ERROR_PATH_NOT_FOUND : OpenError(error, source, false);
}

/// A FILETIME counts ticks of 100 ns since the start of the year 1601.
FILETIME ToFileTime(const timespec& time)
{
    constexpr std::int64_t secondsFrom1601To1970 = 11'644'473'600;
    const auto ticks =
        static_cast<std::uint64_t>((time.tv_sec + secondsFrom1601To1970) * 10'000'000 + time.tv_nsec / 100);
    return {static_cast<DWORD>(ticks), static_cast<DWORD>(ticks >> 32U)};
}

/// Moves a file; an existing target is an error. A file system without RENAME_NOREPLACE needs two steps, and a
/// target that another process creates between them is replaced.
/// @return false with `errno` set
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

// The share mode, the flags and the template have no effect: every file is shared for reading and writing, which
// is what each caller in the library requests.
HANDLE CreateFileW(LPCWSTR path, DWORD access, DWORD, SECURITY_ATTRIBUTES* attributes, DWORD disposition, DWORD, HANDLE)
{
    const int flags = AccessFlags(access);
    const bool isKnown = disposition >= CREATE_NEW && disposition <= TRUNCATE_EXISTING;
    if (path == nullptr || !isKnown || (disposition == TRUNCATE_EXISTING && (flags & O_ACCMODE) == O_RDONLY))
        return Fail(ERROR_INVALID_PARAMETER, INVALID_HANDLE_VALUE);
    std::string translated;
    if (const DWORD error = layer::TranslatePath(path, translated); error != ERROR_SUCCESS)
        return Fail(error, INVALID_HANDLE_VALUE);
    bool existed = false;
    Descriptor file = OpenWithDisposition(disposition, translated, flags, layer::ModeOf(attributes), existed);
    if (!file) {
        if (disposition == CREATE_NEW && errno == EEXIST)
            return Fail(ERROR_FILE_EXISTS, INVALID_HANDLE_VALUE);
        const bool mayCreate = disposition != OPEN_EXISTING && disposition != TRUNCATE_EXISTING;
        return Fail(OpenError(errno, translated, mayCreate), INVALID_HANDLE_VALUE);
    }
    struct stat status {};
    // open(2) opens a folder for reading; the published call refuses it.
    if (fstat(file.get(), &status) != 0 || S_ISDIR(status.st_mode))
        return Fail(ERROR_ACCESS_DENIED, INVALID_HANDLE_VALUE);
    LockShared(file.get());
    HandleFileSizeSignal();
    auto* const object = new (std::nothrow) OpenFile(std::move(file), flags);
    if (object == nullptr)
        return Fail(ERROR_OUTOFMEMORY, INVALID_HANDLE_VALUE);
    const HANDLE handle = layer::OpenHandle(object);
    if (handle == nullptr)
        return INVALID_HANDLE_VALUE;
    // As published, a call that succeeds sets the last error too.
    return Fail(existed ? ERROR_ALREADY_EXISTS : ERROR_SUCCESS, handle);
}

DWORD SetFilePointer(HANDLE handle, LONG distance, LONG* distanceHigh, DWORD method)
{
    OpenFile* const file = FindFile(handle);
    if (file == nullptr)
        return INVALID_SET_FILE_POINTER;
    if (method > FILE_END)
        return Fail(ERROR_INVALID_PARAMETER, INVALID_SET_FILE_POINTER);
    constexpr int origins[] = {SEEK_SET, SEEK_CUR, SEEK_END};  // for FILE_BEGIN, FILE_CURRENT, FILE_END
    // With a high part the distance has 64 bits and its low part no sign; without one it has 32 bits and a sign.
    const std::int64_t offset =
        distanceHigh == nullptr ? std::int64_t{distance}
                                : static_cast<std::int64_t>(std::uint64_t{static_cast<DWORD>(*distanceHigh)} << 32U |
                                                            static_cast<DWORD>(distance));
    const off_t before = distanceHigh == nullptr ? lseek(file->File.get(), 0, SEEK_CUR) : 0;
    const off_t position = lseek(file->File.get(), offset, origins[method]);
    if (position < 0 && errno == EINVAL && offset < 0)
        return Fail(ERROR_NEGATIVE_SEEK, INVALID_SET_FILE_POINTER);
    if (position < 0)
        return Fail(layer::ErrorFromErrno(errno), INVALID_SET_FILE_POINTER);
    // A caller without a high part cannot receive such a position, so the seek is undone.
    if (distanceHigh == nullptr && position > std::int64_t{INVALID_SET_FILE_POINTER}) {
        lseek(file->File.get(), before, SEEK_SET);
        return Fail(ERROR_INVALID_PARAMETER, INVALID_SET_FILE_POINTER);
    }
    // Several processes append to one log. After a seek to the end a write must go to the end that the file has at the
    // time of the write, which another process may have moved. Any other seek ends this.
    if (!file->SetAppending(method == FILE_END && offset == 0))
        return Fail(layer::ErrorFromErrno(errno), INVALID_SET_FILE_POINTER);
    if (distanceHigh != nullptr)
        *distanceHigh = static_cast<LONG>(position >> 32);
    // The low part of a valid position may equal INVALID_SET_FILE_POINTER; callers then check the last error.
    return Fail(NO_ERROR, static_cast<DWORD>(position));
}

BOOL ReadFile(HANDLE handle, LPVOID data, DWORD bytes, DWORD* bytesRead, void*)
{
    *bytesRead = 0;
    const OpenFile* const file = FindFileWithAccess(&OpenFile::CanRead, handle);
    if (file == nullptr)
        return FALSE;
    // read(2) may return less than the file has; ReadFile does so at the end of the file only.
    while (*bytesRead < bytes) {
        const ssize_t count = read(file->File.get(), static_cast<char*>(data) + *bytesRead, bytes - *bytesRead);
        if (count == 0)
            break;
        if (count < 0 && errno != EINTR)
            return BoolResult(false);
        *bytesRead += count > 0 ? static_cast<DWORD>(count) : 0;
    }
    return TRUE;
}

BOOL SetEndOfFile(HANDLE handle)
{
    const OpenFile* const file = FindFileWithAccess(&OpenFile::CanWrite, handle);
    if (file == nullptr)
        return FALSE;
    const off_t position = lseek(file->File.get(), 0, SEEK_CUR);
    return BoolResult(position >= 0 && ftruncate(file->File.get(), position) == 0);
}

BOOL WriteFile(HANDLE handle, LPCVOID data, DWORD bytes, DWORD* written, void*)
{
    if (written != nullptr)
        *written = 0;
    const OpenFile* const file = FindFileWithAccess(&OpenFile::CanWrite, handle);
    if (file == nullptr)
        return FALSE;
    if (!WriteAll(file->File.get(), static_cast<const char*>(data), bytes))
        return Fail(layer::ErrorFromErrno(errno), FALSE);
    if (written != nullptr)
        *written = bytes;
    return TRUE;
}

// Wildcards have no meaning here: a path names one file, with its exact case.
HANDLE FindFirstFileW(LPCWSTR path, WIN32_FIND_DATAW* found)
{
    if (path == nullptr || found == nullptr)
        return Fail(ERROR_INVALID_PARAMETER, INVALID_HANDLE_VALUE);
    std::string translated;
    if (const DWORD error = layer::TranslatePath(path, translated); error != ERROR_SUCCESS)
        return Fail(error, INVALID_HANDLE_VALUE);
    if (translated.ends_with('/'))  // no file name; stat(2) would accept the folder
        return Fail(ERROR_FILE_NOT_FOUND, INVALID_HANDLE_VALUE);
    struct stat status {};
    if (stat(translated.c_str(), &status) != 0)
        return Fail(OpenError(errno, translated, false), INVALID_HANDLE_VALUE);
    *found = WIN32_FIND_DATAW{};
    found->dwFileAttributes = S_ISDIR(status.st_mode) ? FILE_ATTRIBUTE_DIRECTORY : FILE_ATTRIBUTE_NORMAL;
    // ftCreationTime stays 0, "not supported": stat(2) has no creation time.
    found->ftLastAccessTime = ToFileTime(status.st_atim);
    found->ftLastWriteTime = ToFileTime(status.st_mtim);
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
    if (const DWORD error = layer::TranslatePath(path, translated); error != ERROR_SUCCESS)
        return Fail(error, FALSE);
    if (IsOpenAnywhere(translated))
        return Fail(ERROR_SHARING_VIOLATION, FALSE);
    return unlink(translated.c_str()) == 0 ? TRUE : Fail(OpenError(errno, translated, false), FALSE);
}

BOOL MoveFileW(LPCWSTR from, LPCWSTR to)
{
    std::string source;
    std::string target;
    if (const DWORD error = layer::TranslatePath(from, source); error != ERROR_SUCCESS)
        return Fail(error, FALSE);
    if (const DWORD error = layer::TranslatePath(to, target); error != ERROR_SUCCESS)
        return Fail(error, FALSE);
    if (IsOpenAnywhere(source))
        return Fail(ERROR_SHARING_VIOLATION, FALSE);
    return MoveWithoutReplacing(source, target) ? TRUE : Fail(MoveError(errno, source), FALSE);
}
