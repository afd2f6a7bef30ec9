// Detects forks, ends of threads and the unloading of the library, and runs the registered hooks.
#include "base/lifecycle.h"

#include "base/handle.h"

#include <memory>
#include <mutex>
#include <new>
#include <pthread.h>

namespace {

using layer::LifecycleHooks;

std::atomic<std::uint32_t> forkGeneration{0};
std::atomic<std::uint32_t> forkCount{0};

// A singly linked list; the hooks registered last come first. Entries are added under the table lock and never removed,
// so reading needs no lock.
std::atomic<LifecycleHooks*> firstHooks{nullptr};

void RunHooks(void (*LifecycleHooks::*event)())
{
    for (LifecycleHooks* hooks = firstHooks.load(std::memory_order_acquire); hooks != nullptr; hooks = hooks->Next) {
        if (hooks->*event != nullptr)
            (hooks->*event)();
    }
}

// The table lock is held across `fork`. Otherwise another thread could be changing a table at that moment, and the
// child, which does not have that thread, would inherit a half-changed table and a lock that is never released.
//
// Two threads that start to watch at the same time may register the handlers twice: only the first or last call of a
// fork acts. A lock against that could itself be held by another thread at a fork.
constinit thread_local int handlersInFork __attribute__((tls_model("initial-exec"))) = 0;

void BeforeFork()
{
    if (handlersInFork++ != 0)
        return;
    layer::TableLock().lock();
    forkCount.fetch_add(1, std::memory_order_relaxed);
}

void AfterForkInParent()
{
    if (--handlersInFork == 0)
        layer::TableLock().unlock();
}

void AfterForkInChild()
{
    if (--handlersInFork != 0)
        return;
    // The generation comes first: the hooks may take locks, which read it.
    forkGeneration.fetch_add(1, std::memory_order_relaxed);
    RunHooks(&LifecycleHooks::AfterForkInChild);
    layer::TableLock().unlock();
}

void AtThreadEnd(void*)
{
    // The destructors of other keys may still log. A call of WatchThreadEnd then sets the key again, and this
    // function runs once more.
    layer::threadEndWatched = false;
    RunHooks(&LifecycleHooks::AtThreadEnd);
}

// A pthread key is used because a `thread_local` object with a destructor would keep the library loaded until the
// thread ends.
struct ThreadEndKey {
    ThreadEndKey() : Created(pthread_key_create(&Key, AtThreadEnd) == 0) {}

    pthread_key_t Key{};
    const bool Created;
};
std::atomic<ThreadEndKey*> threadEndKey{nullptr};

// Priority 101, the lowest that programs may use, makes this destructor run after the library's static destructors,
// which may still log. Handles are closed first because their objects use what the hooks release.
[[gnu::destructor(101)]] void Unload()
{
    layer::CloseAllHandles();
    RunHooks(&LifecycleHooks::AtUnload);
    if (const std::unique_ptr<ThreadEndKey> key(threadEndKey.exchange(nullptr)); key && key->Created)
        pthread_key_delete(key->Key);
}

}  // namespace

namespace layer {

constinit thread_local bool threadEndWatched = false;

void RegisterHooks(LifecycleHooks& hooks)
{
    if (hooks.Registered.load(std::memory_order_acquire))
        return;
    const std::lock_guard<std::mutex> guard(TableLock());
    if (hooks.Registered.load(std::memory_order_relaxed))
        return;
    hooks.Next = firstHooks.load(std::memory_order_relaxed);
    firstHooks.store(&hooks, std::memory_order_release);
    hooks.Registered.store(true, std::memory_order_release);
}

bool WatchForks()
{
    static std::atomic<bool> watched{false};
    if (!watched.load(std::memory_order_acquire) &&
        pthread_atfork(BeforeFork, AfterForkInParent, AfterForkInChild) == 0)
        watched.store(true, std::memory_order_release);
    return watched.load(std::memory_order_relaxed);
}

std::uint32_t ForkGeneration()
{
    return forkGeneration.load(std::memory_order_relaxed);
}

std::uint32_t ForkCount()
{
    return forkCount.load(std::memory_order_relaxed);
}

bool StartWatchingThreadEnd()
{
    ThreadEndKey* key = threadEndKey.load(std::memory_order_acquire);
    if (key == nullptr) {
        const std::lock_guard<std::mutex> guard(TableLock());
        key = threadEndKey.load(std::memory_order_relaxed);  // another thread may have created it meanwhile
        if (key == nullptr) {
            key = new (std::nothrow) ThreadEndKey;
            threadEndKey.store(key, std::memory_order_release);
        }
    }
    // The key's destructor runs only for threads with a value other than null, so any such value will do.
    threadEndWatched = key != nullptr && key->Created && pthread_setspecific(key->Key, key) == 0;
    return threadEndWatched;
}

}  // namespace layer
