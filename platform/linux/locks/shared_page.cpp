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

#include "base/environment.h"
#include "base/last_error.h"
#include "locks/page_arena.h"

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <cstdio>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>

namespace {

constexpr std::uint32_t SlotCount = 0xFFFF;
constexpr off_t OpenByte = 0;
// O_NOFOLLOW, O_NONBLOCK: the folder may be open to every account. A symbolic link must not lead to another file, and a
// named pipe must not block the caller.
constexpr int OpenFlags = O_RDWR | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK;

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

/// An exclusive lock (F_WRLCK) or a release (F_UNLCK) of a range of bytes.
struct flock ByteLock(short type, off_t start, off_t length)
{
    struct flock lock {};
    lock.l_type = type;
    lock.l_whence = SEEK_SET;
    lock.l_start = start;
    lock.l_len = length;
    return lock;
}

/// @return false with `errno` set: EAGAIN or EACCES if another open file description holds the byte
bool TryLockByte(int file, off_t byte)
{
    struct flock lock = ByteLock(F_WRLCK, byte, 1);
    return fcntl(file, F_OFD_SETLK, &lock) == 0;
}

bool WaitForByte(int file, off_t byte)
{
    struct flock lock = ByteLock(F_WRLCK, byte, 1);
    int result = 0;
    do
        result = fcntl(file, F_OFD_SETLKW, &lock);
    while (result != 0 && errno == EINTR);
    return result == 0;
}

void UnlockByte(int file, off_t byte)
{
    struct flock lock = ByteLock(F_UNLCK, byte, 1);
    fcntl(file, F_OFD_SETLK, &lock);
}

/// Whether another open file description holds a slot. The caller's own locks never conflict with its query.
bool HasUsers(int file)
{
    struct flock lock = ByteLock(F_WRLCK, 1, SlotCount);
    return fcntl(file, F_OFD_GETLK, &lock) == 0 && lock.l_type != F_UNLCK;
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

/// The path of the file of a mutex: a hash of the whole name, which keeps names apart, and the end of the name for a
/// reader, with `_` for each character that is unusual in a file name. Two names with one hash are told apart by the
/// name in the record.
std::string PathOf(layer::TextView name)
{
    constexpr std::size_t shownUnits = 100;
    const char* folder = layer::Environment("VELTRIX_RUNTIME");
    std::string path = folder != nullptr && *folder != '\0' ? folder : "/dev/shm";
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
/// @return the descriptor, or -1 with `errno` set
int CreatePageFile(const std::string& path, layer::FileMode mode)
{
    const std::string folder = path.substr(0, path.rfind('/'));
    int file = open(folder.c_str(), O_RDWR | O_CLOEXEC | O_TMPFILE, mode.Bits);
    if (file >= 0) {
        if (SetMode(file, mode) &&
            linkat(AT_FDCWD, DescriptorPath(file), AT_FDCWD, path.c_str(), AT_SYMLINK_FOLLOW) == 0)
            return file;
        close(file);
    }
    file = open(path.c_str(), O_RDWR | O_CLOEXEC | O_CREAT | O_EXCL, mode.Bits);
    if (file >= 0)
        SetMode(file, mode);
    return file;
}

/// Whether `path` still leads to the open file.
bool HasPath(int file, const std::string& path)
{
    struct stat opened {};
    struct stat named {};
    return fstat(file, &opened) == 0 && lstat(path.c_str(), &named) == 0 && opened.st_dev == named.st_dev &&
           opened.st_ino == named.st_ino;
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

DWORD SharedPage::Open(TextView name, FileMode mode, bool owned, bool& isNew)
{
    if (name.size() > MaxNameUnits)
        return ERROR_FILENAME_EXCED_RANGE;
    Path = PathOf(name);
    for (;;) {
        if (const DWORD error = OpenFile(mode); error != ERROR_SUCCESS)
            return error;
        if (!WaitForByte(File, OpenByte)) {
            const DWORD error = ErrorFromErrno(errno);
            Close();
            return error;
        }
        // While this process waited, the last user may have removed the file. The lock then belongs to a file that no
        // other process can open any more, so start again.
        if (HasPath(File, Path))
            break;
        close(File);
        File = -1;
    }
    const DWORD error = OpenLocked(name, owned, isNew);
    if (error == ERROR_SUCCESS)
        UnlockByte(File, OpenByte);
    else
        Close();
    return error;
}

/// Opens the file, or creates it. The first attempt has no O_CREAT: in a sticky folder the kernel may refuse O_CREAT
/// for an existing file of another account.
/// @return ERROR_SUCCESS, or the system error; then nothing is open
DWORD SharedPage::OpenFile(FileMode mode)
{
    for (;;) {
        File = open(Path.c_str(), OpenFlags);
        if (File < 0 && errno == ENOENT) {
            File = CreatePageFile(Path, mode);
            if (File < 0 && errno == EEXIST)  // another process created it meanwhile
                continue;
            if (File < 0 && errno == ENOENT)
                return ERROR_PATH_NOT_FOUND;
        }
        if (File < 0)
            return ErrorFromErrno(errno);
        struct stat status {};
        if (fstat(File, &status) == 0 && S_ISREG(status.st_mode))
            return ERROR_SUCCESS;
        Close();
        return ERROR_INVALID_HANDLE;
    }
}

/// The rest of opening, while this process holds the open byte: no other process opens or leaves the page.
/// @return ERROR_SUCCESS, or the system error; the caller then closes the page
DWORD SharedPage::OpenLocked(TextView name, bool owned, bool& isNew)
{
    // Without users the file is new, or its users were killed. What those left is dropped: an owner's number in the
    // word would mean nothing.
    isNew = !HasUsers(File);
    if (isNew && ftruncate(File, 0) != 0)
        return ErrorFromErrno(errno);
    // Storage is allocated now. On a full file system a later write to the mapping would raise SIGBUS instead.
    if (const int error = isNew ? posix_fallocate(File, 0, PageBytes) : 0; error != 0)
        return ErrorFromErrno(error);
    Page = MapGuardedPage(File);
    if (Page == nullptr)
        return ErrorFromErrno(errno);
    auto* const record = static_cast<Record*>(Page);
    if (isNew) {
        record->Magic = Magic;
        record->NameUnits = static_cast<std::uint32_t>(name.size());
        std::copy(name.begin(), name.end(), record->Name);
    } else if (record->Magic != Magic || record->NameUnits != name.size() ||
               !std::equal(name.begin(), name.end(), record->Name)) {
        // Not a page, or that of another name with the same hash. CreateMutexW reports this code for a name that an
        // object of another kind has.
        return ERROR_INVALID_HANDLE;
    }
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
        if (!TryLockByte(File, slot)) {
            if (errno != EAGAIN && errno != EACCES)
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

void SharedPage::ReopenAfterFork()
{
    if (Page == nullptr) {
        // A thread that does not exist in the child was opening the page.
        if (File >= 0)
            close(std::exchange(File, -1));
        return;
    }
    // The inherited open file description holds the parent's slot, so a dead parent would seem alive as long as the
    // child keeps it. The child needs its own description and a mapping through it. It gives up the inherited one only
    // after it has claimed a slot: if the parent died in between, the page would have no user and the next opener would
    // reset it. If no descriptor is free, the inherited one has to be closed first.
    int inherited = File;
    const bool hasPath = HasPath(inherited, Path);
    File = open(DescriptorPath(inherited), O_RDWR | O_CLOEXEC);
    if (File < 0 && hasPath) {
        close(std::exchange(inherited, -1));
        File = open(Path.c_str(), OpenFlags);
    }
    Slot = 0;
    const bool reopened = File >= 0 && ClaimSlot() == ERROR_SUCCESS && RemapGuardedPage(Page, File);
    if (inherited >= 0)
        close(inherited);
    if (!reopened)
        Close();
}

bool SharedPage::TakeFromDeadOwner(std::uint32_t seen)
{
    // The number comes from the untrusted page. A number that no process ever had counts as a dead owner's.
    const off_t ownerByte = seen & SlotMask;
    if (!TryLockByte(File, ownerByte))
        return false;
    const bool taken = Word()->compare_exchange_strong(seen, Slot | Waiting, std::memory_order_acquire);
    UnlockByte(File, ownerByte);
    return taken;
}

/// Leaves the page. The last user removes the file, if its account may.
void SharedPage::Close()
{
    if (Page != nullptr)
        UnmapGuardedPage(Page);  // first: the mapping keeps the open file description alive
    Page = nullptr;
    if (File < 0)
        return;
    if (Slot != 0) {
        // If another process holds byte 0, it is opening the page and will be a user, so the file has to stay.
        if (TryLockByte(File, OpenByte) && !HasUsers(File) && HasPath(File, Path))
            unlink(Path.c_str());
        // close(2) alone may not release the locks: a child between `fork` and `exec` shares the open file description.
        UnlockByte(File, Slot);
        UnlockByte(File, OpenByte);
    }
    close(File);
    File = -1;
    Slot = 0;
}

}  // namespace layer
