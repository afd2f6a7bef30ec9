// Named mutexes: owned by a thread, recursive, known by name on the whole machine.
//
// A process has one object per name, and the object has two locks. LocalLock excludes the threads of this process from
// each other; other processes cannot access it. The word of the shared page excludes the processes from each other. A
// thread takes LocalLock first and accesses the word only while it holds LocalLock.
//
// Order of the locks: a mutex's opening lock, then the list lock, then the table lock. A thread that waits for a mutex
// holds none of them, and one that waits for other processes while it opens a mutex holds that mutex's opening lock
// only.
#include "base/futex.h"
#include "base/handle.h"
#include "base/lifecycle.h"
#include "base/process.h"
#include "files/security.h"
#include "locks/shared_page.h"
#include "tessmaru/text.h"

#include <atomic>
#include <mutex>
#include <new>
#include <utility>

namespace {

using namespace utility::literals;
using layer::Deadline;
using layer::SharedPage;
using layer::Text;
using layer::TextView;

// Nanoseconds of sleep before the first check whether the owner is alive, and between further ones. The first is longer
// than an owner usually keeps the mutex, so an ordinary wait pays for no check. Both are short against the second for
// which a log record waits.
constexpr std::int64_t FirstSleep = 5'000'000;
constexpr std::int64_t LaterSleep = 50'000'000;

// How often a busy word is read again before the first sleep. An owner keeps the mutex of the log for about a
// microsecond; sleeping and being woken takes several. Four processes that log take a fifth less time with this.
constexpr int Spins = 500;

// How long an opening waits for other processes. Any account that can reach the file can keep it locked.
constexpr DWORD OpeningMilliseconds = 5'000;

/// A mutex with or without a name. One without a name uses LocalLock only.
class NamedMutex final : public layer::Object {
public:
    /// @throws std::bad_alloc
    explicit NamedMutex(TextView name) : Object(Kind::mutex), Name(name) {}
    ~NamedMutex() override;

    /// Opens the mutex, unless an earlier call has done that. Waits for other threads and processes that open it at
    /// that moment, at most OpeningMilliseconds.
    /// @param owned  whether the calling thread owns a new mutex from the start
    /// @param isNew  receives whether no living process had the mutex open
    /// @return ERROR_SUCCESS, ERROR_TIMEOUT, or another system error
    DWORD Open(const SECURITY_ATTRIBUTES* attributes, bool owned, bool& isNew);

    /// @return as WaitForSingleObject, with the last error set for WAIT_FAILED
    DWORD Wait(DWORD milliseconds);

    /// @return false if the calling thread is not the owner
    bool Release();

    void Close() override;

    /// In the child of a `fork`, under the table lock.
    void ReopenAfterFork();

    /// Releases the mutex and marks it as abandoned if this thread owns it.
    void AbandonIfOwnedBy(std::uintptr_t thread);
    bool HasName(TextView name) const { return !Name.empty() && Name == name; }

    /// Keeps the process a user of the mutex after it has closed all descriptors. The calling thread owns the mutex.
    void Restore() { Page.Restore(); }

    /// Makes the release of the calling thread, which owns the mutex, abandon it.
    void AbandonAtRelease() { IsToAbandon = true; }

    NamedMutex* Next = nullptr;

private:
    DWORD OpenLocked(const SECURITY_ATTRIBUTES* attributes, bool owned, Deadline& deadline, bool& isNew);
    DWORD AcquirePage(Deadline& deadline);
    DWORD AcquireContended(std::atomic<std::uint32_t>& word, Deadline& deadline);
    void SetOwner();
    void ReleaseOwnership(bool abandoned);

    std::atomic<std::uintptr_t> Owner{0};
    std::uint32_t Recursion = 0;  // this and the next: accessed by the owner only
    bool IsToAbandon = false;
    std::atomic<std::uint32_t> LocalLock{0};
    bool LocallyAbandoned = false;  // for a mutex without a name, which has no word; accessed under LocalLock
    SharedPage Page;
    const Text Name;
    std::atomic<std::uint32_t> OpeningLock{0};
    bool Opened = false;  // accessed under OpeningLock
};

// The list of all mutexes of the process. It is changed under both the list lock and the table lock, so either of them
// is enough to read it.
NamedMutex* mutexes = nullptr;

// The list lock keeps a mutex from being found while its last reference is released. It is a lock besides the table
// lock because a release makes system calls, during which the table lock must not be held.
std::atomic<std::uint32_t> listWord{0};

class ListLock {
public:
    ListLock()
    {
        Deadline never(INFINITE);
        layer::LockWord(listWord, never);
    }
    ListLock(const ListLock&) = delete;
    ListLock& operator=(const ListLock&) = delete;
    ~ListLock() { layer::UnlockWord(listWord); }
};

/// Takes the word for `slot` if it becomes free within a few microseconds. @return whether it did
bool SpinForWord(std::atomic<std::uint32_t>& word, std::uint32_t slot)
{
    for (int i = 0; i < Spins; ++i) {
        std::uint32_t expected = 0;
        if (word.load(std::memory_order_relaxed) == 0 &&
            word.compare_exchange_strong(expected, slot, std::memory_order_acquire))
            return true;
        __builtin_ia32_pause();
    }
    return false;
}

NamedMutex::~NamedMutex()
{
    const std::lock_guard<std::mutex> guard(layer::TableLock());
    for (NamedMutex** link = &mutexes; *link != nullptr; link = &(*link)->Next) {
        if (*link == this) {
            *link = Next;
            break;
        }
    }
    AbandonIfOwnedBy(Owner.load(std::memory_order_relaxed));
}

/// Takes the list lock: a thread that opens the same name may be adding a reference to this object.
void NamedMutex::Close()
{
    const ListLock guard;
    layer::Release(this);
}

DWORD NamedMutex::Open(const SECURITY_ATTRIBUTES* attributes, bool owned, bool& isNew)
{
    Deadline deadline(OpeningMilliseconds);
    if (!layer::LockWord(OpeningLock, deadline))
        return ERROR_TIMEOUT;
    isNew = false;
    const DWORD error = Opened ? ERROR_SUCCESS : OpenLocked(attributes, owned, deadline, isNew);
    layer::UnlockWord(OpeningLock);
    return error;
}

DWORD NamedMutex::OpenLocked(const SECURITY_ATTRIBUTES* attributes, bool owned, Deadline& deadline, bool& isNew)
try {
    isNew = true;
    if (!Name.empty()) {
        const DWORD error = Page.Open(Name, layer::ModeOf(attributes), owned, deadline, isNew);
        if (error != ERROR_SUCCESS)
            return error;
    }
    if (owned && isNew) {
        Deadline never(INFINITE);
        layer::LockWord(LocalLock, never);
        SetOwner();
    }
    Opened = true;
    return ERROR_SUCCESS;
} catch (const std::bad_alloc&) {
    return ERROR_OUTOFMEMORY;
}

void NamedMutex::SetOwner()
{
    Owner.store(layer::CurrentThread(), std::memory_order_relaxed);
    Recursion = 1;
    IsToAbandon = false;
}

DWORD NamedMutex::Wait(DWORD milliseconds)
{
    // A relaxed load is enough: only the calling thread itself stores its own value.
    if (Owner.load(std::memory_order_relaxed) == layer::CurrentThread()) {
        ++Recursion;
        return WAIT_OBJECT_0;
    }
    // A thread that ends as the owner abandons the mutex, so its end has to be noticed.
    if (!layer::WatchThreadEnd())
        return layer::Fail(ERROR_OUTOFMEMORY, WAIT_FAILED);
    Deadline deadline(milliseconds);
    if (!layer::LockWord(LocalLock, deadline))
        return WAIT_TIMEOUT;
    const DWORD result = AcquirePage(deadline);
    if (result == WAIT_OBJECT_0 || result == WAIT_ABANDONED)
        SetOwner();
    else
        layer::UnlockWord(LocalLock);
    return result;
}

/// Acquires the word of the page, while the caller holds LocalLock.
/// @return as Wait
DWORD NamedMutex::AcquirePage(Deadline& deadline)
{
    if (Name.empty())
        return std::exchange(LocallyAbandoned, false) ? WAIT_ABANDONED : WAIT_OBJECT_0;
    std::atomic<std::uint32_t>* const word = Page.Word();
    if (word == nullptr)
        return layer::Fail(ERROR_INVALID_HANDLE, WAIT_FAILED);
    // Acquire pairs with the release in ReleaseOwnership, also between processes: the new owner sees what the last one
    // wrote.
    std::uint32_t expected = 0;
    if (word->compare_exchange_strong(expected, Page.slot(), std::memory_order_acquire))
        return WAIT_OBJECT_0;
    return SpinForWord(*word, Page.slot()) ? WAIT_OBJECT_0 : AcquireContended(*word, deadline);
}

/// Acquires a word that was not free: sleeps until the owner releases it, or takes it over from a dead owner. A killed
/// owner wakes no waiter, so a sleep is bounded and followed by a check of the owner.
/// @return as Wait
DWORD NamedMutex::AcquireContended(std::atomic<std::uint32_t>& word, Deadline& deadline)
{
    std::uint32_t seen = word.load(std::memory_order_relaxed);
    std::int64_t sleep = FirstSleep;
    bool checkOwner = deadline.Left(sleep) == 0;  // a call that must not wait has no later round for it
    for (;;) {
        const std::uint32_t owner = seen & SharedPage::SlotMask;
        // The caller holds LocalLock, so no thread of this process owns the mutex. The process's own number in the word
        // was written by another process and counts as an abandoned mutex.
        if (owner == 0 || owner == Page.slot()) {
            // Waiting is set again: other threads may still sleep, and a release wakes one only if it finds the bit.
            if (!word.compare_exchange_weak(seen, Page.slot() | SharedPage::Waiting, std::memory_order_acquire))
                continue;
            return owner == 0 && (seen & SharedPage::Abandoned) == 0 ? WAIT_OBJECT_0 : WAIT_ABANDONED;
        }
        if (checkOwner && Page.TakeFromDeadOwner(seen))
            return WAIT_ABANDONED;
        const std::int64_t left = deadline.Left(sleep);
        if (left == 0)
            return WAIT_TIMEOUT;
        // The bit has to be in the word before the sleep: an owner that does not see it wakes no waiter. If the word
        // changes after this, FutexWait returns at once.
        const std::uint32_t marked = seen | SharedPage::Waiting;
        if (seen != marked && !word.compare_exchange_weak(seen, marked, std::memory_order_relaxed))
            continue;
        checkOwner = !layer::FutexWait(word, marked, left, layer::Reach::machine);
        if (checkOwner)
            sleep = LaterSleep;
        seen = word.load(std::memory_order_relaxed);
    }
}

/// Releases both locks, the word first: it may be accessed under LocalLock only.
void NamedMutex::ReleaseOwnership(bool abandoned)
{
    Owner.store(0, std::memory_order_relaxed);
    std::atomic<std::uint32_t>* const word = Page.Word();
    const std::uint32_t released = abandoned ? SharedPage::Abandoned : 0;
    if (Name.empty())
        LocallyAbandoned = abandoned;
    else if (word != nullptr && (word->exchange(released, std::memory_order_release) & SharedPage::Waiting) != 0)
        layer::FutexWake(*word, layer::Reach::machine);
    layer::UnlockWord(LocalLock);
}

bool NamedMutex::Release()
{
    if (Owner.load(std::memory_order_relaxed) != layer::CurrentThread())
        return false;
    if (--Recursion == 0)
        ReleaseOwnership(IsToAbandon);
    return true;
}

void NamedMutex::ReopenAfterFork()
{
    // The threads that owned the mutex or waited for it do not exist in the child.
    Owner = 0;
    LocalLock = 0;
    Page.ReopenAfterFork();
}

void NamedMutex::AbandonIfOwnedBy(std::uintptr_t thread)
{
    if (thread != 0 && Owner.load(std::memory_order_relaxed) == thread)
        ReleaseOwnership(true);
}

NamedMutex* FindMutex(HANDLE handle)
{
    return static_cast<NamedMutex*>(layer::FindObject(handle, layer::Object::Kind::mutex));
}

/// The name without the prefix of a session. Linux has no sessions in this sense, so both prefixes mean the machine.
TextView BaseName(LPCWSTR name)
{
    // A view without data must not be copied into a string.
    TextView text = name == nullptr ? u""_w : name;
    for (const TextView prefix : {TextView(u"Global\\"_w), TextView(u"Local\\"_w)}) {
        if (text.starts_with(prefix))
            return text.substr(prefix.size());
    }
    return text;
}

/// The process's object of a name, or a new one that is not open yet. It is listed before it is open: threads that open
/// one name at the same time have to share it, and if the process forks now, the child has to close a half-opened page.
/// @return the object with a reference for the caller
/// @throws std::bad_alloc
NamedMutex* FindOrAdd(TextView name)
{
    const ListLock guard;
    for (NamedMutex* mutex = mutexes; mutex != nullptr; mutex = mutex->Next) {
        if (mutex->HasName(name)) {
            layer::AddReference(mutex);
            return mutex;
        }
    }
    auto* const created = new NamedMutex(name);
    const std::lock_guard<std::mutex> table(layer::TableLock());
    created->Next = mutexes;
    mutexes = created;
    return created;
}

// The lifecycle holds the table lock here.
void ReopenMutexesAfterFork()
{
    for (NamedMutex* mutex = mutexes; mutex != nullptr; mutex = mutex->Next)
        mutex->ReopenAfterFork();
}

void AbandonMutexesOfThread()
{
    const std::lock_guard<std::mutex> guard(layer::TableLock());
    for (NamedMutex* mutex = mutexes; mutex != nullptr; mutex = mutex->Next)
        mutex->AbandonIfOwnedBy(layer::CurrentThread());
}

constinit layer::LifecycleHooks hooks{
    .AfterForkInChild = ReopenMutexesAfterFork, .AtThreadEnd = AbandonMutexesOfThread, .AtUnload = nullptr};

}  // namespace

HANDLE CreateMutexW(SECURITY_ATTRIBUTES* attributes, BOOL initialOwner, LPCWSTR name)
try {
    const TextView base = BaseName(name);
    if (name != nullptr && *name == '\\')
        return layer::Fail(ERROR_BAD_PATHNAME, HANDLE{nullptr});
    if (base.find(WCHAR{'\\'}) != TextView::npos)
        return layer::Fail(ERROR_PATH_NOT_FOUND, HANDLE{nullptr});
    layer::RegisterHooks(hooks);
    if (!layer::WatchForks() || (initialOwner != FALSE && !layer::WatchThreadEnd()))
        return layer::Fail(ERROR_OUTOFMEMORY, HANDLE{nullptr});
    NamedMutex* const mutex = FindOrAdd(base);
    bool isNew = false;
    if (const DWORD error = mutex->Open(attributes, initialOwner != FALSE, isNew); error != ERROR_SUCCESS) {
        mutex->Close();
        return layer::Fail(error, HANDLE{nullptr});
    }
    const HANDLE handle = layer::OpenHandle(mutex);
    if (handle != nullptr)
        SetLastError(isNew ? ERROR_SUCCESS : ERROR_ALREADY_EXISTS);
    return handle;
} catch (const std::bad_alloc&) {
    return layer::Fail(ERROR_OUTOFMEMORY, HANDLE{nullptr});
}

DWORD WaitForSingleObject(HANDLE handle, DWORD milliseconds)
{
    NamedMutex* const mutex = FindMutex(handle);
    return mutex == nullptr ? WAIT_FAILED : mutex->Wait(milliseconds);
}

BOOL ReleaseMutex(HANDLE handle)
{
    NamedMutex* const mutex = FindMutex(handle);
    if (mutex == nullptr)
        return FALSE;
    return mutex->Release() ? TRUE : layer::Fail(ERROR_NOT_OWNER, FALSE);
}

void platform::RestoreMutex(HANDLE handle)
{
    if (NamedMutex* const mutex = FindMutex(handle))
        mutex->Restore();
}

void platform::AbandonAtRelease(HANDLE handle)
{
    if (NamedMutex* const mutex = FindMutex(handle))
        mutex->AbandonAtRelease();
}
