// Mutexes: owned by a thread, recursive, known by name on the whole machine.
//
// A process has one object a name. What excludes is the word of the shared page, or one of the object's own where
// there is no name; it names the owning process. Which thread that is stands in the object, where no other process
// can write: two threads of a process never both own a mutex, whatever happens to the word.
#include "futex.h"
#include "process.h"
#include "security.h"
#include "shared_page.h"

#include <chrono>
#include <iterator>
#include <new>
#include <thread>
#include <utility>

namespace {

using layer::Deadline;
using layer::SharedPage;
using layer::Text;
using layer::TextView;

// Long enough that handing over never asks the kernel, short enough for a record that waits one second.
constexpr std::int64_t FirstSleep = 5'000'000;
constexpr std::int64_t FurtherSleep = 50'000'000;
constexpr std::int64_t ShortSleep = 1'000'000;

class NamedMutex final : public layer::Object {
public:
    NamedMutex() : Object(Kind::mutex) {}
    ~NamedMutex() override;

    DWORD Open(TextView name, const SECURITY_ATTRIBUTES* attributes, bool owned, bool& isNew);
    DWORD Wait(DWORD milliseconds);
    bool Release();

    void ReopenAfterFork();
    void AbandonIfOwnedBy(std::uintptr_t thread);
    bool IsCalled(TextView name) const { return !Name.empty() && Name == name; }

    NamedMutex* Next = nullptr;

private:
    std::atomic<std::uint32_t>* Word() { return Name.empty() ? &OwnWord : Page.Word(); }
    std::uint32_t Number() const { return Name.empty() ? 1 : Page.Number(); }
    layer::Reach Reach() const { return Name.empty() ? layer::Reach::process : layer::Reach::machine; }

    DWORD Contend(std::atomic<std::uint32_t>& word, Deadline& deadline);
    bool OwnerIsGone(std::uint32_t seen);
    bool BecomeOwner();
    bool WaitToBecomeOwner(Deadline& deadline);
    void LetGo(std::uint32_t leaving);

    std::atomic<std::uintptr_t> Owner{0};
    std::uint32_t Recursion = 0;  // the owner's
    std::atomic<std::uint32_t> OwnWord{0};
    SharedPage Page;
    Text Name;
};

// All mutexes of the process. Changed under both the opening lock and the table lock.
NamedMutex* mutexes = nullptr;

// Keeps those who open and close apart: both wait for other processes.
std::atomic<std::uint32_t> openingWord{0};

class OpeningLock {
public:
    OpeningLock() { layer::LockWord(openingWord); }
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

DWORD NamedMutex::Open(TextView name, const SECURITY_ATTRIBUTES* attributes, bool owned, bool& isNew)
{
    isNew = true;
    if (!name.empty()) {
        Name = name;
        if (const DWORD error = Page.Open(name, layer::ModeOf(attributes), owned, isNew); error != ERROR_SUCCESS)
            return error;
    }
    if (owned && isNew) {
        Word()->store(Number(), std::memory_order_relaxed);
        BecomeOwner();
    }
    const std::lock_guard<std::mutex> guard(layer::TableLock());
    Next = mutexes;
    mutexes = this;
    return ERROR_SUCCESS;
}

DWORD NamedMutex::Wait(DWORD milliseconds)
{
    if (Owner.load(std::memory_order_relaxed) == layer::CurrentThread()) {
        ++Recursion;
        return WAIT_OBJECT_0;
    }
    std::atomic<std::uint32_t>* const word = Word();
    if (word == nullptr)
        return layer::Fail(ERROR_INVALID_HANDLE, WAIT_FAILED);
    if (!layer::WatchThreadEnd())
        return layer::Fail(ERROR_OUTOFMEMORY, WAIT_FAILED);
    Deadline deadline(milliseconds);
    std::uint32_t nobody = 0;
    DWORD result = WAIT_OBJECT_0;
    if (!word->compare_exchange_strong(nobody, Number(), std::memory_order_acquire))
        result = Contend(*word, deadline);
    if (result == WAIT_TIMEOUT || BecomeOwner() || WaitToBecomeOwner(deadline))
        return result;
    return WAIT_TIMEOUT;
}

/// Waits until the word names this process.
DWORD NamedMutex::Contend(std::atomic<std::uint32_t>& word, Deadline& deadline)
{
    std::uint32_t seen = word.load(std::memory_order_relaxed);
    std::int64_t sleep = FirstSleep;
    bool askForOwner = deadline.Left(sleep) == 0;
    for (;;) {
        if ((seen & SharedPage::NumberMask) == 0) {
            // Whoever has waited leaves the mark of waiting, as others may still sleep.
            if (word.compare_exchange_weak(seen, Number() | SharedPage::Waiting, std::memory_order_acquire))
                return (seen & SharedPage::Abandoned) == 0 ? WAIT_OBJECT_0 : WAIT_ABANDONED;
            continue;
        }
        if (askForOwner && OwnerIsGone(seen))
            return WAIT_ABANDONED;
        const std::int64_t left = deadline.Left(sleep);
        if (left == 0)
            return WAIT_TIMEOUT;
        const std::uint32_t marked = seen | SharedPage::Waiting;
        if (seen != marked && !word.compare_exchange_weak(seen, marked, std::memory_order_relaxed))
            continue;
        askForOwner = !layer::FutexWait(word, marked, left, Reach());
        if (askForOwner)
            sleep = FurtherSleep;
        seen = word.load(std::memory_order_relaxed);
    }
}

/// Takes the word of an owner that has gone: another process's that is dead, or this one's where none of its
/// threads owns it, because somebody else wrote the word.
bool NamedMutex::OwnerIsGone(std::uint32_t seen)
{
    if ((seen & SharedPage::NumberMask) != Number())
        return !Name.empty() && Page.TakeFromDead(seen);
    return Owner.load(std::memory_order_relaxed) == 0 &&
           Word()->compare_exchange_strong(seen, Number() | SharedPage::Waiting, std::memory_order_acquire);
}

bool NamedMutex::BecomeOwner()
{
    std::uintptr_t nobody = 0;
    if (!Owner.compare_exchange_strong(nobody, layer::CurrentThread(), std::memory_order_acquire))
        return false;
    Recursion = 1;
    return true;
}

/// The word says that the mutex is free, and a thread of this process has it: somebody else wrote the word.
bool NamedMutex::WaitToBecomeOwner(Deadline& deadline)
{
    while (deadline.Left(ShortSleep) > 0) {
        std::this_thread::sleep_for(std::chrono::nanoseconds(ShortSleep));
        if (BecomeOwner())
            return true;
    }
    return false;
}

void NamedMutex::LetGo(std::uint32_t leaving)
{
    Owner.store(0, std::memory_order_release);
    std::atomic<std::uint32_t>* const word = Word();
    if (word != nullptr && (word->exchange(leaving, std::memory_order_release) & SharedPage::Waiting) != 0)
        layer::FutexWake(*word, Reach());
}

bool NamedMutex::Release()
{
    if (Owner.load(std::memory_order_relaxed) != layer::CurrentThread())
        return false;
    if (--Recursion == 0)
        LetGo(0);
    return true;
}

void NamedMutex::ReopenAfterFork()
{
    Owner = 0;
    OwnWord = 0;
    Page.ReopenAfterFork();
}

void NamedMutex::AbandonIfOwnedBy(std::uintptr_t thread)
{
    if (thread != 0 && Owner.load(std::memory_order_relaxed) == thread)
        LetGo(SharedPage::Abandoned);
}

NamedMutex* FindMutex(HANDLE handle)
{
    return static_cast<NamedMutex*>(layer::FindObject(handle, layer::Object::Kind::mutex));
}

/// The name behind the prefixes of the platform's sessions, of which there is one here.
TextView BaseName(LPCWSTR name)
{
    constexpr WCHAR global[] = {'G', 'l', 'o', 'b', 'a', 'l', '\\'};
    constexpr WCHAR local[] = {'L', 'o', 'c', 'a', 'l', '\\'};
    TextView text = name == nullptr ? TextView() : TextView(name);
    for (const TextView prefix : {TextView(global, std::size(global)), TextView(local, std::size(local))}) {
        if (text.starts_with(prefix))
            return text.substr(prefix.size());
    }
    return text;
}

/// The object of this name with a reference for the caller: one that the process has, or a new one.
NamedMutex* OpenObject(TextView name, const SECURITY_ATTRIBUTES* attributes, bool owned, bool& isNew)
{
    for (NamedMutex* mutex = mutexes; mutex != nullptr; mutex = mutex->Next) {
        if (mutex->IsCalled(name)) {
            layer::AddReference(mutex);
            isNew = false;
            return mutex;
        }
    }
    auto* const made = new (std::nothrow) NamedMutex;
    if (made == nullptr)
        return layer::Fail(ERROR_OUTOFMEMORY, made);
    DWORD error = ERROR_OUTOFMEMORY;
    try {
        error = made->Open(name, attributes, owned, isNew);
    } catch (const std::bad_alloc&) {
        error = ERROR_OUTOFMEMORY;
    }
    if (error == ERROR_SUCCESS)
        return made;
    layer::Release(made);
    return layer::Fail(error, static_cast<NamedMutex*>(nullptr));
}

}  // namespace

HANDLE CreateMutexW(SECURITY_ATTRIBUTES* attributes, BOOL initialOwner, LPCWSTR name)
{
    const TextView base = BaseName(name);
    if (base.find(WCHAR{'\\'}) != TextView::npos)
        return layer::Fail(ERROR_PATH_NOT_FOUND, HANDLE{nullptr});
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

namespace layer {

bool CloseMutex(HANDLE handle)
{
    if (FindMutex(handle) == nullptr)
        return false;
    const OpeningLock guard;
    return ShutHandle(handle, Object::Kind::mutex);
}

void ReopenMutexesAfterFork()
{
    for (NamedMutex* mutex = mutexes; mutex != nullptr; mutex = mutex->Next)
        mutex->ReopenAfterFork();
}

void AbandonMutexesOfThread()
{
    const std::lock_guard<std::mutex> guard(TableLock());
    for (NamedMutex* mutex = mutexes; mutex != nullptr; mutex = mutex->Next)
        mutex->AbandonIfOwnedBy(CurrentThread());
}

}  // namespace layer
