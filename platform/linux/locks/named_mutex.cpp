// Named mutexes: owned by a thread, recursive, known by name on the whole machine.
//
// A process has one object per name, and the object has two locks. LocalLock excludes the threads of this process from
// each other; other processes cannot access it. The word of the shared page excludes the processes from each other. A
// thread takes LocalLock first and accesses the word only while it holds LocalLock.
//
// Order of the locks: opening lock, then table lock. A thread that waits for a mutex holds neither.
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

/// A mutex with or without a name. One without a name uses LocalLock only.
class NamedMutex final : public layer::Object {
public:
    NamedMutex() : Object(Kind::mutex) {}
    ~NamedMutex() override;

    /// Opens the mutex, once after construction.
    /// @param owned  whether the calling thread owns a new mutex from the start
    /// @param isNew  receives whether no living process had the mutex open
    /// @return ERROR_SUCCESS, or the system error
    /// @throws std::bad_alloc
    DWORD Open(TextView name, const SECURITY_ATTRIBUTES* attributes, bool owned, bool& isNew);

    /// @return as WaitForSingleObject, with the last error set for WAIT_FAILED
    DWORD Wait(DWORD milliseconds);

    /// @return false if the calling thread is not the owner
    bool Release();

    void Close() override;

    /// In the child of a `fork`, under the table lock.
    void ReopenAfterFork();

    /// Releases the mutex and marks it as abandoned if this thread owns it.
    void AbandonIfOwnedBy(std::uintptr_t thread);
    bool HasName(TextView name) const { return Opened && !Name.empty() && Name == name; }

    NamedMutex* Next = nullptr;

private:
    DWORD AcquirePage(Deadline& deadline);
    DWORD AcquireContended(std::atomic<std::uint32_t>& word, Deadline& deadline);
    void SetOwner();
    void ReleaseOwnership(bool abandoned);

    std::atomic<std::uintptr_t> Owner{0};
    std::uint32_t Recursion = 0;  // accessed by the owner only
    std::atomic<std::uint32_t> LocalLock{0};
    bool LocallyAbandoned = false;  // for a mutex without a name, which has no word; accessed under LocalLock
    SharedPage Page;
    Text Name;
    bool Opened = false;  // a `fork` may leave the child an object whose Open was never completed
};

// The list of all mutexes of the process. It is changed under both the opening lock and the table lock, so either of
// them is enough to read it.
NamedMutex* mutexes = nullptr;

// The opening lock: serialises opening and closing. It is a lock besides the table lock because opening may wait for
// other processes, and the table lock must never be held across a wait.
std::atomic<std::uint32_t> openingWord{0};

class OpeningLock {
public:
    OpeningLock()
    {
        Deadline never(INFINITE);
        layer::LockWord(openingWord, never);
    }
    OpeningLock(const OpeningLock&) = delete;
    OpeningLock& operator=(const OpeningLock&) = delete;
    ~OpeningLock() { layer::UnlockWord(openingWord); }
};

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

/// Takes the opening lock: a thread that opens the same name may be adding a reference to this object.
void NamedMutex::Close()
{
    const OpeningLock guard;
    layer::Release(this);
}

DWORD NamedMutex::Open(TextView name, const SECURITY_ATTRIBUTES* attributes, bool owned, bool& isNew)
{
    isNew = true;
    Name = name;
    {
        // Listed before it is open: if the process forks now, the child has to close the half-opened page.
        const std::lock_guard<std::mutex> guard(layer::TableLock());
        Next = mutexes;
        mutexes = this;
    }
    if (!name.empty()) {
        if (const DWORD error = Page.Open(name, layer::ModeOf(attributes), owned, isNew); error != ERROR_SUCCESS)
            return error;
    }
    if (owned && isNew) {
        Deadline never(INFINITE);
        layer::LockWord(LocalLock, never);
        SetOwner();
    }
    Opened = true;
    return ERROR_SUCCESS;
}

void NamedMutex::SetOwner()
{
    Owner.store(layer::CurrentThread(), std::memory_order_relaxed);
    Recursion = 1;
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
    return AcquireContended(*word, deadline);
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
        ReleaseOwnership(false);
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
    TextView text = name == nullptr ? TextView() : TextView(name);
    for (const TextView prefix : {TextView(u"Global\\"_w), TextView(u"Local\\"_w)}) {
        if (text.starts_with(prefix))
            return text.substr(prefix.size());
    }
    return text;
}

/// Finds the process's object of a name, or creates it. Called under the opening lock.
/// @param isNew  receives whether no living process had the mutex open
/// @return the object with a reference for the caller, or null with the last error set
NamedMutex* OpenObject(TextView name, const SECURITY_ATTRIBUTES* attributes, bool owned, bool& isNew)
{
    for (NamedMutex* mutex = mutexes; mutex != nullptr; mutex = mutex->Next) {
        if (mutex->HasName(name)) {
            layer::AddReference(mutex);
            isNew = false;
            return mutex;
        }
    }
    auto* const created = new (std::nothrow) NamedMutex;
    if (created == nullptr)
        return layer::Fail(ERROR_OUTOFMEMORY, created);
    DWORD error = ERROR_OUTOFMEMORY;
    try {
        error = created->Open(name, attributes, owned, isNew);
    } catch (const std::bad_alloc&) {
        error = ERROR_OUTOFMEMORY;
    }
    if (error == ERROR_SUCCESS)
        return created;
    layer::Release(created);
    return layer::Fail(error, static_cast<NamedMutex*>(nullptr));
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
{
    const TextView base = BaseName(name);
    if (name != nullptr && *name == '\\')
        return layer::Fail(ERROR_BAD_PATHNAME, HANDLE{nullptr});
    if (base.find(WCHAR{'\\'}) != TextView::npos)
        return layer::Fail(ERROR_PATH_NOT_FOUND, HANDLE{nullptr});
    layer::RegisterHooks(hooks);
    if (!layer::WatchForks() || (initialOwner != FALSE && !layer::WatchThreadEnd()))
        return layer::Fail(ERROR_OUTOFMEMORY, HANDLE{nullptr});
    const OpeningLock guard;
    bool isNew = false;
    NamedMutex* const mutex = OpenObject(base, attributes, initialOwner != FALSE, isNew);
    if (mutex == nullptr)
        return nullptr;
    const HANDLE handle = layer::OpenHandle(mutex);
    if (handle != nullptr)
        SetLastError(isNew ? ERROR_SUCCESS : ERROR_ALREADY_EXISTS);
    return handle;
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
