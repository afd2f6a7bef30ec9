// The protocol of the shared page.
//
// File: the record below, then nothing. Byte locks, each of an open file description, so the kernel drops
// them with the last descriptor of a dead process:
//   byte 0          held while somebody opens or leaves the page
//   byte s, s >= 1  held by the process that uses the page as number s, as long as it does
// The word is 0 while the page is free; an owner puts its number there and the next one takes it away
// without a system call. A waiter marks the word and sleeps on it. Where it has slept for a while it asks
// the kernel whether the owner's byte is still locked; if it can lock that byte itself the owner is dead, and
// while it holds the byte nobody can become that number, so it takes the word over.
#include "locks/shared_page.h"

#include "base/environment.h"
#include "base/last_error.h"
#include "locks/page_arena.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>

namespace {

constexpr std::uint32_t Slots = 0xFFFF;
constexpr off_t OpenByte = 0;
constexpr int OpenFlags = O_RDWR | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK;

constexpr std::uint32_t Mark = 0x314D5556;  // "VUM1"

struct Record {
    std::uint32_t Mark;
    std::uint32_t NameUnits;
    alignas(64) std::atomic<std::uint32_t> Word;
    alignas(64) WCHAR Name[1];
};
static_assert(std::atomic<std::uint32_t>::is_always_lock_free);

constexpr std::size_t MaxNameUnits = (layer::PageBytes - offsetof(Record, Name)) / sizeof(WCHAR);

struct flock ByteLock(short type, off_t start, off_t length)
{
    struct flock lock {};
    lock.l_type = type;
    lock.l_whence = SEEK_SET;
    lock.l_start = start;
    lock.l_len = length;
    return lock;
}

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

/// Whether any other description has a number: whether the page is in use.
bool HasUsers(int file)
{
    struct flock lock = ByteLock(F_WRLCK, 1, Slots);
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

/// The file of a mutex: the end of its name as far as it suits a file name, and the hash of the whole.
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
        const bool plain = (unit >= '0' && unit <= '9') || (unit >= 'A' && unit <= 'Z') ||
                           (unit >= 'a' && unit <= 'z') || unit == '.' || unit == '-';
        path += plain ? static_cast<char>(unit) : '_';
    }
    return path;
}

/// The name under which this process can reach what it has open as `file`.
class OwnName {
public:
    explicit OwnName(int file) { std::snprintf(Text, sizeof Text, "/proc/self/fd/%d", file); }
    operator const char*() const { return Text; }  // NOLINT(google-explicit-constructor): stands for its text

private:
    char Text[32];
};

bool SetMode(int file, layer::FileMode mode)
{
    return !mode.Exact || fchmod(file, mode.Bits) == 0;
}

/// A new file of this mode under `path`, or -1. It gets its name when its mode stands, so
/// that another account never meets it closed; where the folder cannot do that, a moment later.
int MakeFile(const std::string& path, layer::FileMode mode)
{
    const std::string folder = path.substr(0, path.rfind('/'));
    int file = open(folder.c_str(), O_RDWR | O_CLOEXEC | O_TMPFILE, mode.Bits);
    if (file >= 0) {
        if (SetMode(file, mode) && linkat(AT_FDCWD, OwnName(file), AT_FDCWD, path.c_str(), AT_SYMLINK_FOLLOW) == 0)
            return file;
        close(file);
    }
    file = open(path.c_str(), O_RDWR | O_CLOEXEC | O_CREAT | O_EXCL, mode.Bits);
    if (file >= 0)
        SetMode(file, mode);
    return file;
}

bool SameFile(int file, const std::string& path)
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
        // The last user may have removed the file while this one waited.
        if (SameFile(File, Path))
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

/// Opens the file, or makes it. Another account's file in a sticky folder opens only without O_CREAT.
DWORD SharedPage::OpenFile(FileMode mode)
{
    for (;;) {
        File = open(Path.c_str(), OpenFlags);
        if (File < 0 && errno == ENOENT) {
            File = MakeFile(Path, mode);
            if (File < 0 && errno == EEXIST)
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

/// The rest of opening, while the open byte is held.
DWORD SharedPage::OpenLocked(TextView name, bool owned, bool& isNew)
{
    isNew = !HasUsers(File);
    if (isNew && ftruncate(File, 0) != 0)
        return ErrorFromErrno(errno);
    // Storage now, so that the page is never missing for want of it later.
    if (const int error = isNew ? posix_fallocate(File, 0, PageBytes) : 0; error != 0)
        return ErrorFromErrno(error);
    Page = MapGuarded(File);
    if (Page == nullptr)
        return ErrorFromErrno(errno);
    auto* const record = static_cast<Record*>(Page);
    if (isNew) {
        record->Mark = Mark;
        record->NameUnits = static_cast<std::uint32_t>(name.size());
        std::copy(name.begin(), name.end(), record->Name);
    } else if (record->Mark != Mark || record->NameUnits != name.size() ||
               !std::equal(name.begin(), name.end(), record->Name)) {
        return ERROR_INVALID_HANDLE;
    }
    if (const DWORD error = TakeSlot(); error != ERROR_SUCCESS)
        return error;
    if (isNew && owned)
        Word()->store(Slot, std::memory_order_relaxed);
    return ERROR_SUCCESS;
}

/// Becomes a user of the page: takes the first free number behind one that differs between processes.
DWORD SharedPage::TakeSlot()
{
    const auto start = static_cast<std::uint32_t>(getpid());
    for (std::uint32_t i = 0; i < Slots; ++i) {
        const std::uint32_t slot = (start + i) % Slots + 1;
        if (!TryLockByte(File, slot)) {
            if (errno != EAGAIN && errno != EACCES)
                return ErrorFromErrno(errno);
            continue;
        }
        Slot = slot;
        // The number's last bearer may have died as the owner.
        std::uint32_t seen = Word()->load(std::memory_order_relaxed);
        while ((seen & NumberMask) == slot &&
               !Word()->compare_exchange_weak(seen, (seen & Waiting) | Abandoned, std::memory_order_acquire)) {
        }
        return ERROR_SUCCESS;
    }
    return ERROR_TOO_MANY_OPEN_FILES;
}

void SharedPage::ReopenAfterFork()
{
    if (Page == nullptr) {
        // Being opened when the process forked, by a thread that does not exist here.
        if (File >= 0)
            close(std::exchange(File, -1));
        return;
    }
    // The inherited description keeps the parent's number alive, so it has to go, and the mapping that holds on
    // to it; but not before the child has a number: the page would be nobody's for a moment if the parent
    // died. With all descriptors used there is no other way.
    int inherited = File;
    const bool named = SameFile(inherited, Path);
    File = open(OwnName(inherited), O_RDWR | O_CLOEXEC);
    if (File < 0 && named) {
        close(std::exchange(inherited, -1));
        File = open(Path.c_str(), OpenFlags);
    }
    Slot = 0;
    const bool taken = File >= 0 && TakeSlot() == ERROR_SUCCESS && RemapGuarded(Page, File);
    if (inherited >= 0)
        close(inherited);
    if (!taken)
        Close();
}

bool SharedPage::TakeFromDead(std::uint32_t seen)
{
    const off_t ownerByte = seen & NumberMask;
    if (!TryLockByte(File, ownerByte))
        return false;
    const bool taken = Word()->compare_exchange_strong(seen, Slot | Waiting, std::memory_order_acquire);
    UnlockByte(File, ownerByte);
    return taken;
}

/// Leaves the page; the last user removes the file, where it may.
void SharedPage::Close()
{
    if (Page != nullptr)
        UnmapGuarded(Page);
    Page = nullptr;
    if (File < 0)
        return;
    if (Slot != 0) {
        if (TryLockByte(File, OpenByte) && !HasUsers(File) && SameFile(File, Path))
            unlink(Path.c_str());
        // By hand, as a process that is just being started may share the description for a moment.
        UnlockByte(File, Slot);
        UnlockByte(File, OpenByte);
    }
    close(File);
    File = -1;
    Slot = 0;
}

}  // namespace layer
