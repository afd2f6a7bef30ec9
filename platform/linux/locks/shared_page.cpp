// Implements the protocol of the shared page: opening, slots of users, take-over from dead owners.
//
// The file holds one Record and nothing else. Byte locks on the file show which processes use it. They belong to an
// open file description (F_OFD_SETLK), so the kernel releases them when the last descriptor of a dead process is
// closed:
//   byte 0           held while a process opens or leaves the page
//   byte s (s >= 1)  held by the process that uses the page under slot number s, as long as it uses it
//
// The word is 0 while the page is free. An owner stores its slot number there and a release stores 0, both without a
// system call. A waiter sets the Waiting bit and sleeps on the word. When its sleep times out, it tries to lock the
// owner's byte. If that succeeds, the owner is dead; and as long as the waiter holds this byte, no other process can
// claim the slot, so the word can be taken over safely.
#include "locks/shared_page.h"

#include "base/byte_lock.h"
#include "base/environment.h"
#include "base/file_size_signal.h"
#include "base/last_error.h"
#include "locks/page_arena.h"
#include "text/debug_output.h"

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <optional>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>

namespace {

constexpr std::uint32_t SlotCount = 0xFFFF;
constexpr off_t OpenByte = 0;
// O_NOFOLLOW, O_NONBLOCK: the folder may be open to every account. A symbolic link must not lead to another file, and a
// named pipe must not block the caller.
constexpr int OpenFlags = O_RDWR | O_NOFOLLOW | O_NONBLOCK;

constexpr std::uint32_t Magic = 0x314D5556;  // "VUM1"

/// The content of the page.
struct Record {
    std::uint32_t Magic;
    std::uint32_t NameUnits;
    alignas(64) std::atomic<std::uint32_t> Word;
    alignas(64) WCHAR Name[1];
};
static_assert(std::atomic<std::uint32_t>::is_always_lock_free);

constexpr std::size_t MaxNameUnits = (layer::PageBytes - offsetof(Record, Name)) / sizeof(WCHAR);

/// Whether another open file description holds a slot. The caller's own locks never conflict with its query.
/// @return nothing with `errno` set if the query fails: the page of living users must be neither reset nor removed
std::optional<bool> HasUsers(int file)
{
    struct flock lock {};
    lock.l_type = F_WRLCK;
    lock.l_whence = SEEK_SET;
    lock.l_start = 1;
    lock.l_len = SlotCount;
    if (fcntl(file, F_OFD_GETLK, &lock) != 0)
        return std::nullopt;
    return lock.l_type != F_UNLCK;
}

std::uint64_t Hash(layer::TextView name)
{
    constexpr std::uint64_t prime = 0x100000001B3;  // FNV-1a
    std::uint64_t hash = 0xCBF29CE484222325;
    for (const WCHAR unit : name) {
        hash = (hash ^ (unit & 0xFFU)) * prime;
        hash = (hash ^ (unsigned{unit} >> 8U)) * prime;
    }
    return hash;
}

/// The folder of the files: the one that the package creates for the accounts of the suite, or the one that every
/// account may use.
const char* RuntimeFolder()
{
    constexpr const char* ofSuite = "/run/veltrix";
    const char* const chosen = layer::Environment("VELTRIX_RUNTIME");
    if (chosen != nullptr && *chosen != '\0')
        return chosen;
    struct stat status {};
    return stat(ofSuite, &status) == 0 && S_ISDIR(status.st_mode) ? ofSuite : "/dev/shm";
}

/// The path of the file of a mutex: a hash of the whole name, which keeps names apart, and the end of the name for a
/// reader, with `_` for each character that is unusual in a file name. Names with one hash and one end share a mutex,
/// which costs time and nothing else.
std::string PathOf(layer::TextView name)
{
    constexpr std::size_t shownUnits = 100;
    std::string path = RuntimeFolder();
    path += "/veltrix-mutex-";
    char digits[17];
    std::snprintf(digits, sizeof digits, "%016llx", static_cast<unsigned long long>(Hash(name)));
    path += digits;
    path += '-';
    for (const WCHAR unit : name.substr(name.size() - std::min(name.size(), shownUnits))) {
        const bool isPlain = (unit >= '0' && unit <= '9') || (unit >= 'A' && unit <= 'Z') ||
                             (unit >= 'a' && unit <= 'z') || unit == '.' || unit == '-';
        path += isPlain ? static_cast<char>(unit) : '_';
    }
    return path;
}

/// The path under /proc that leads to an open file, whether or not the file still has a name.
class DescriptorPath {
public:
    explicit DescriptorPath(int file) { std::snprintf(Text, sizeof Text, "/proc/self/fd/%d", file); }
    operator const char*() const { return Text; }  // NOLINT(google-explicit-constructor): used as its text

private:
    char Text[32];
};

/// Sets the mode bits that the umask has removed, if the file must have them.
bool SetMode(int file, layer::FileMode mode)
{
    return !mode.Exact || fchmod(file, mode.Bits) == 0;
}

/// Creates the file of a page. The file gets its name after its mode (O_TMPFILE and linkat): otherwise a process of
/// another account could find it before fchmod and be refused. A file system without O_TMPFILE leaves that gap.
/// @return no descriptor with `errno` set on failure
layer::Descriptor CreatePageFile(const std::string& path, layer::FileMode mode)
{
    const std::string folder = path.substr(0, path.rfind('/'));
    layer::Descriptor unnamed = layer::OpenHigh(folder.c_str(), O_RDWR | O_TMPFILE, mode.Bits);
    if (unnamed && SetMode(unnamed.get(), mode) &&
        linkat(AT_FDCWD, DescriptorPath(unnamed.get()), AT_FDCWD, path.c_str(), AT_SYMLINK_FOLLOW) == 0)
        return unnamed;
    layer::Descriptor file = layer::OpenHigh(path.c_str(), O_RDWR | O_CREAT | O_EXCL, mode.Bits);
    if (file)
        SetMode(file.get(), mode);
    return file;
}

/// Whether `path` still leads to the open file.
bool HasPath(int file, const std::string& path)
{
    struct stat named {};
    return lstat(path.c_str(), &named) == 0 && layer::FileIdentity(named).IsOf(file);
}

/// Whether a page can be this file. A file with a second link may be another program's, and must be neither truncated
/// nor opened to more accounts.
bool IsUsable(const struct stat& status)
{
    return S_ISREG(status.st_mode) && status.st_nlink <= 1;
}

/// Removes what is at the path of a page and cannot be one: something else than a regular file with one link, or a file
/// of this account that does not open. In a folder with the sticky bit only root and the owner succeed.
bool RemoveObstacle(const std::string& path)
{
    struct stat status {};
    if (lstat(path.c_str(), &status) != 0)
        return errno == ENOENT;
    if (IsUsable(status) && status.st_uid != geteuid())
        return false;
    return (S_ISDIR(status.st_mode) ? rmdir(path.c_str()) : unlink(path.c_str())) == 0;
}

/// Opens a page to the accounts that `mode` names. Its creator may have chosen other bits.
void RestoreMode(int file, const struct stat& status, layer::FileMode mode)
{
    constexpr mode_t permissions = 0777;
    const uid_t account = geteuid();
    if (mode.Exact && (status.st_mode & permissions) != mode.Bits && (account == 0 || account == status.st_uid))
        fchmod(file, mode.Bits);
}

/// Reports a page that cannot be opened in debug output, since the caller gets only a code. @return the code
DWORD Refuse(const std::string& path, DWORD error, const char* reason)
{
    layer::DebugLine("the mutex " + path + " cannot be opened: " + reason);
    return error;
}

}  // namespace

namespace layer {

SharedPage::~SharedPage()
{
    Close();
}

std::atomic<std::uint32_t>* SharedPage::Word() const
{
    return Page == nullptr ? nullptr : &static_cast<Record*>(Page)->Word;
}

DWORD SharedPage::Open(TextView name, FileMode mode, bool owned, Deadline& deadline, bool& isNew)
{
    if (name.size() > MaxNameUnits)
        return ERROR_FILENAME_EXCED_RANGE;
    Path = PathOf(name);
    do {
        // Another account may remove the file again and again.
        if (deadline.Left(1) == 0) {
            File = Descriptor();
            return Refuse(Path, ERROR_TIMEOUT, "it is removed again and again");
        }
        if (const DWORD error = OpenFile(mode, deadline); error != ERROR_SUCCESS)
            return error;
        if (!WaitForByteLock(File.get(), OpenByte, ByteLock::exclusive, deadline)) {
            const int error = errno;
            File = Descriptor();
            return error == ETIMEDOUT ? Refuse(Path, ERROR_TIMEOUT, "another process keeps it locked")
                                      : Refuse(Path, ErrorFromErrno(error), std::strerror(error));
        }
        // While this process waited, the last user may have removed the file. The lock then belongs to a file that no
        // other process can open any more, so start again.
    } while (!HasPath(File.get(), Path));
    const DWORD error = OpenLocked(name, owned, isNew);
    if (error == ERROR_SUCCESS) {
        SetByteLock(File.get(), OpenByte, ByteLock::none);
        return error;
    }
    Close();
    return Refuse(Path, error, "its content is not usable");
}

/// Opens the file, or creates it. The first attempt has no O_CREAT: in a sticky folder the kernel may refuse O_CREAT
/// for an existing file of another account.
/// @return ERROR_SUCCESS, or the system error; then nothing is open
DWORD SharedPage::OpenFile(FileMode mode, Deadline& deadline)
{
    for (;;) {
        File = OpenHigh(Path.c_str(), OpenFlags);
        if (!File && errno == ENOENT) {
            File = CreatePageFile(Path, mode);
            if (!File && errno == EEXIST && deadline.Left(1) != 0)  // another process created it meanwhile
                continue;
            if (!File && errno == ENOENT)
                return Refuse(Path, ERROR_PATH_NOT_FOUND, "its folder does not exist");
        }
        const int error = errno;
        struct stat status {};
        if (File && fstat(File.get(), &status) != 0) {
            // Not an obstacle, perhaps the page of living users.
            const int unknown = errno;
            File = Descriptor();
            return Refuse(Path, ErrorFromErrno(unknown), std::strerror(unknown));
        }
        if (File && IsUsable(status)) {
            RestoreMode(File.get(), status, mode);
            Identity = FileIdentity(status);
            return ERROR_SUCCESS;
        }
        const bool isObstacle = File || error == ELOOP || error == EISDIR || error == EACCES || error == ENXIO;
        // Another account can put an obstacle there again and again, so the deadline ends this too.
        if (isObstacle && RemoveObstacle(Path) && deadline.Left(1) != 0)
            continue;
        const bool isOpen = static_cast<bool>(File);
        File = Descriptor();
        return isOpen ? Refuse(Path, ERROR_INVALID_HANDLE, "it is no regular file with one link")
                      : Refuse(Path, ErrorFromErrno(error), std::strerror(error));
    }
}

/// The rest of opening, while this process holds the open byte: no other process opens or leaves the page.
/// @return ERROR_SUCCESS, or the system error; the caller then closes the page
DWORD SharedPage::OpenLocked(TextView name, bool owned, bool& isNew)
{
    // Without users the file is new, or its users were killed. What those left is dropped: an owner's number in the
    // word would mean nothing.
    const std::optional<bool> hasUsers = HasUsers(File.get());
    if (!hasUsers)
        return ErrorFromErrno(errno);
    isNew = !*hasUsers;
    if (isNew && ftruncate(File.get(), 0) != 0)
        return ErrorFromErrno(errno);
    HandleFileSizeSignal();
    // Storage is allocated now. On a full file system a later write to the mapping would raise SIGBUS instead.
    if (const int error = isNew ? posix_fallocate(File.get(), 0, PageBytes) : 0; error != 0)
        return ErrorFromErrno(error);
    Page = MapGuardedPage(File.get());
    if (Page == nullptr)
        return ErrorFromErrno(errno);
    // The header is for readers of the file only. It is written again at each opening, so that a damaged one heals.
    auto* const record = static_cast<Record*>(Page);
    record->Magic = Magic;
    record->NameUnits = static_cast<std::uint32_t>(name.size());
    std::copy(name.begin(), name.end(), record->Name);
    if (const DWORD error = ClaimSlot(); error != ERROR_SUCCESS)
        return error;
    if (isNew && owned)
        Word()->store(Slot, std::memory_order_relaxed);  // no other process sees the page before byte 0 is free
    return ERROR_SUCCESS;
}

/// Makes this process a user of the page under the first free slot. The search starts at a number made from the process
/// id, so that it usually ends at once.
/// @return ERROR_SUCCESS, or the system error
DWORD SharedPage::ClaimSlot()
{
    const auto start = static_cast<std::uint32_t>(getpid());
    for (std::uint32_t i = 0; i < SlotCount; ++i) {
        const std::uint32_t slot = (start + i) % SlotCount + 1;
        if (!SetByteLock(File.get(), slot, ByteLock::exclusive)) {
            if (!IsLockConflict(errno))
                return ErrorFromErrno(errno);
            continue;
        }
        Slot = slot;
        // The last user of this slot may have died as the owner. If its number stayed in the word, other processes
        // would wait for this process, which will never release the page. Waiting stays set: threads may sleep.
        std::uint32_t seen = Word()->load(std::memory_order_relaxed);
        while ((seen & SlotMask) == slot &&
               !Word()->compare_exchange_weak(seen, (seen & Waiting) | Abandoned, std::memory_order_acquire)) {
        }
        return ERROR_SUCCESS;
    }
    return ERROR_TOO_MANY_OPEN_FILES;
}

/// Makes this process a user of the page through another descriptor of its file.
/// @return false if that fails; the page is then closed
bool SharedPage::Adopt(Descriptor file)
{
    // The former descriptor is closed at the end: if its process died before the new slot is claimed, the page would
    // have no user, and the next opener would reset it.
    const Descriptor former = std::exchange(File, std::move(file));
    Slot = 0;
    if (File && Identity.IsOf(File.get()) && ClaimSlot() == ERROR_SUCCESS && RemapGuardedPage(Page, File.get()))
        return true;
    Close();
    return false;
}

void SharedPage::ReopenAfterFork()
{
    if (Page == nullptr) {
        // A thread that does not exist in the child was opening the page.
        File = Descriptor();
        return;
    }
    ForgetLostDescriptor();
    // The inherited open file description holds the parent's slot, so a dead parent would seem alive as long as the
    // child keeps it. The child needs its own description and a mapping through it.
    Descriptor own = OpenHigh(DescriptorPath(File.get()), O_RDWR);
    if (!own && HasPath(File.get(), Path)) {
        // No descriptor is free: the inherited one has to be closed first.
        File = Descriptor();
        own = OpenHigh(Path.c_str(), OpenFlags);
    }
    Adopt(std::move(own));
}

void SharedPage::Restore()
{
    if (Page == nullptr || !IsLost(File.get(), Identity))
        return;
    ForgetLostDescriptor();
    // Without the file, for lack of a free descriptor for example, the page stays mapped and the next call tries again.
    Descriptor again = OpenHigh(Path.c_str(), OpenFlags);
    const std::uint32_t former = Slot;
    if (!again || !Identity.IsOf(again.get()) || !Adopt(std::move(again)))
        return;
    // The word still holds the former slot, which no longer belongs to this process.
    std::uint32_t seen = Word()->load(std::memory_order_relaxed);
    while ((seen & SlotMask) == former &&
           !Word()->compare_exchange_weak(seen, (seen & ~SlotMask) | Slot, std::memory_order_relaxed)) {
    }
}

/// A program may close all descriptors. The number of this one can then belong to a file of the program, which must not
/// be closed or locked.
void SharedPage::ForgetLostDescriptor()
{
    if (File && IsLost(File.get(), Identity))
        File.Release();
}

bool SharedPage::TakeFromDeadOwner(std::uint32_t seen)
{
    // Through another file every owner would seem dead.
    if (!Identity.IsOf(File.get()))
        return false;
    // The number comes from the untrusted page. A number that no process ever had counts as a dead owner's.
    const off_t ownerByte = seen & SlotMask;
    if (!SetByteLock(File.get(), ownerByte, ByteLock::exclusive))
        return false;
    const bool taken = Word()->compare_exchange_strong(seen, Slot | Waiting, std::memory_order_acquire);
    SetByteLock(File.get(), ownerByte, ByteLock::none);
    return taken;
}

/// Leaves the page. The last user removes the file, if its account may.
void SharedPage::Close()
{
    if (Page != nullptr)
        UnmapGuardedPage(Page);  // first: the mapping keeps the open file description alive
    Page = nullptr;
    ForgetLostDescriptor();
    // Without a slot too: a failed opening leaves neither a new file nor a lock, even if the page stayed mapped.
    if (File) {
        // If another process holds byte 0, it is opening the page and will be a user, so the file has to stay.
        if (SetByteLock(File.get(), OpenByte, ByteLock::exclusive) && HasUsers(File.get()) == false &&
            HasPath(File.get(), Path))
            unlink(Path.c_str());
        // close(2) alone may not release the locks: a child between `fork` and `exec` shares the open file description.
        SetByteLock(File.get(), Slot, ByteLock::none);
        SetByteLock(File.get(), OpenByte, ByteLock::none);
    }
    File = Descriptor();
    Slot = 0;
}

}  // namespace layer
