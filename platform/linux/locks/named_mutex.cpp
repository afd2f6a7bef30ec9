// Mutexes: owned by a thread, recursive, known by name on the whole machine.
//
// A process has one object a name, with two locks in a row. The first is the process's own: it keeps its threads
// apart, whatever others do to the second, the word of the shared page. Only who holds the first touches the second.
#include "base/futex.h"
#include "base/handle.h"
#include "base/lifecycle.h"
#include "base/process.h"
#include "files/security.h"
#include "locks/shared_page.h"
#include "tessmaru/text.h"

#include <new>
#include <utility>

namespace {

using namespace utility::literals;
using layer::Deadline;
using layer::SharedPage;
using layer::Text;
using layer::TextView;

// Long enough that handing over never asks the kernel, short enough for a record that waits one second.
constexpr std::int64_t FirstSleep = 5'000'000;
constexpr std::int64_t FurtherSleep = 50'000'000;

class NamedMutex final : public layer::Object {
public:
    NamedMutex() : Object(Kind::mutex) {}
    ~NamedMutex() override;

    DWORD Open(TextView name, const SECURITY_ATTRIBUTES* attributes, bool owned, bool& isNew);
    DWORD Wait(DWORD milliseconds);
    bool Release();

    void Close() override;

    void ReopenAfterFork();
    void AbandonIfOwnedBy(std::uintptr_t thread);
    bool IsCalled(TextView name) const { return Ready && !Name.empty() && Name == name; }

    NamedMutex* Next = nullptr;

private:
    DWORD AcquirePage(Deadline& deadline);
    DWORD Contend(std::atomic<std::uint32_t>& word, Deadline& deadline);
    void SetOwner();
    void LetGo(bool abandoned);

    std::atomic<std::uintptr_t> Owner{0};
    std::uint32_t Recursion = 0;  // the owner's
    std::atomic<std::uint32_t> Local{0};
    bool LocallyAbandoned = false;  // of a mutex without a name; under Local
    SharedPage Page;
    Text Name;
    bool Ready = false;  // a `fork` may leave the child an object that was never opened
};

// All mutexes of the process. Changed under both the opening lock and the table lock.
NamedMutex* mutexes = nullptr;

// Keeps those who open and close apart: both wait for other processes.
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

/// Waits for those who open mutexes: one of them may just take a new reference to this object.
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
        // Listed from the start: what a child of a `fork` inherits half opened has to be closed there.
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
        layer::LockWord(Local, never);
        SetOwner();
    }
    Ready = true;
    return ERROR_SUCCESS;
}

void NamedMutex::SetOwner()
{
    Owner.store(layer::CurrentThread(), std::memory_order_relaxed);
    Recursion = 1;
}

DWORD NamedMutex::Wait(DWORD milliseconds)
{
    if (Owner.load(std::memory_order_relaxed) == layer::CurrentThread()) {
        ++Recursion;
        return WAIT_OBJECT_0;
    }
    if (!layer::WatchThreadEnd())
        return layer::Fail(ERROR_OUTOFMEMORY, WAIT_FAILED);
    Deadline deadline(milliseconds);
    if (!layer::LockWord(Local, deadline))
        return WAIT_TIMEOUT;
    const DWORD result = AcquirePage(deadline);
    if (result == WAIT_OBJECT_0 || result == WAIT_ABANDONED)
        SetOwner();
    else
        layer::UnlockWord(Local);
    return result;
}

/// The second lock, while the first is held.
DWORD NamedMutex::AcquirePage(Deadline& deadline)
{
    if (Name.empty())
        return std::exchange(LocallyAbandoned, false) ? WAIT_ABANDONED : WAIT_OBJECT_0;
    std::atomic<std::uint32_t>* const word = Page.Word();
    if (word == nullptr)
        return layer::Fail(ERROR_INVALID_HANDLE, WAIT_FAILED);
    std::uint32_t nobody = 0;
    if (word->compare_exchange_strong(nobody, Page.Number(), std::memory_order_acquire))
        return WAIT_OBJECT_0;
    return Contend(*word, deadline);
}

DWORD NamedMutex::Contend(std::atomic<std::uint32_t>& word, Deadline& deadline)
{
    std::uint32_t seen = word.load(std::memory_order_relaxed);
    std::int64_t sleep = FirstSleep;
    bool askForOwner = deadline.Left(sleep) == 0;
    for (;;) {
        const std::uint32_t owner = seen & SharedPage::NumberMask;
        // This process's own number, while none of its threads is here, was written by somebody else.
        if (owner == 0 || owner == Page.Number()) {
            // Whoever has waited leaves the mark of waiting, as others may still sleep.
            if (!word.compare_exchange_weak(seen, Page.Number() | SharedPage::Waiting, std::memory_order_acquire))
                continue;
            return owner == 0 && (seen & SharedPage::Abandoned) == 0 ? WAIT_OBJECT_0 : WAIT_ABANDONED;
        }
        if (askForOwner && Page.TakeFromDead(seen))
            return WAIT_ABANDONED;
        const std::int64_t left = deadline.Left(sleep);
        if (left == 0)
            return WAIT_TIMEOUT;
        const std::uint32_t marked = seen | SharedPage::Waiting;
        if (seen != marked && !word.compare_exchange_weak(seen, marked, std::memory_order_relaxed))
            continue;
        askForOwner = !layer::FutexWait(word, marked, left, layer::Reach::machine);
        if (askForOwner)
            sleep = FurtherSleep;
        seen = word.load(std::memory_order_relaxed);
    }
}

void NamedMutex::LetGo(bool abandoned)
{
    Owner.store(0, std::memory_order_relaxed);
    std::atomic<std::uint32_t>* const word = Page.Word();
    const std::uint32_t leaving = abandoned ? SharedPage::Abandoned : 0;
    if (Name.empty())
        LocallyAbandoned = abandoned;
    else if (word != nullptr && (word->exchange(leaving, std::memory_order_release) & SharedPage::Waiting) != 0)
        layer::FutexWake(*word, layer::Reach::machine);
    layer::UnlockWord(Local);
}

bool NamedMutex::Release()
{
    if (Owner.load(std::memory_order_relaxed) != layer::CurrentThread())
        return false;
    if (--Recursion == 0)
        LetGo(false);
    return true;
}

void NamedMutex::ReopenAfterFork()
{
    Owner = 0;
    Local = 0;
    Page.ReopenAfterFork();
}

void NamedMutex::AbandonIfOwnedBy(std::uintptr_t thread)
{
    if (thread != 0 && Owner.load(std::memory_order_relaxed) == thread)
        LetGo(true);
}

NamedMutex* FindMutex(HANDLE handle)
{
    return static_cast<NamedMutex*>(layer::FindObject(handle, layer::Object::Kind::mutex));
}

/// The name without the prefix of a session. All sessions are one on this platform.
TextView BaseName(LPCWSTR name)
{
    TextView text = name == nullptr ? TextView() : TextView(name);
    for (const TextView prefix : {TextView(u"Global\\"_w), TextView(u"Local\\"_w)}) {
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
