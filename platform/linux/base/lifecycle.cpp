// Notices forks, ends of threads and unloading, and runs the hooks of the families that registered.
#include "base/lifecycle.h"

#include "base/handle.h"

#include <memory>
#include <mutex>
#include <new>
#include <pthread.h>

namespace {

using layer::LifecycleHooks;

std::atomic<std::uint32_t> forkGeneration{0};

// The hooks registered last come first. Entries are added under the table lock and never removed, so a reader needs no
// lock.
std::atomic<LifecycleHooks*> firstHooks{nullptr};

void Run(void (*LifecycleHooks::*event)())
{
    for (LifecycleHooks* hooks = firstHooks.load(std::memory_order_acquire); hooks != nullptr; hooks = hooks->Next) {
        if (hooks->*event != nullptr)
            (hooks->*event)();
    }
}

// The table lock is held across `fork`, so that the child inherits tables that no thread was changing.
void BeforeFork()
{
    layer::TableLock().lock();
}

void AfterForkInParent()
{
    layer::TableLock().unlock();
}

void AfterForkInChild()
{
    forkGeneration.fetch_add(1, std::memory_order_relaxed);
    Run(&LifecycleHooks::AfterForkInChild);
    layer::TableLock().unlock();
}

void AtThreadEnd(void*)
{
    // Another destructor of the thread may still log; the thread is then watched again.
    layer::threadEndWatched = false;
    Run(&LifecycleHooks::AtThreadEnd);
}

// A key, not a thread_local with a destructor: that would keep the library loaded until its threads end.
struct ThreadEndKey {
    ThreadEndKey() : Made(pthread_key_create(&Key, AtThreadEnd) == 0) {}

    pthread_key_t Key{};
    const bool Made;
};
std::atomic<ThreadEndKey*> threadEndKey{nullptr};

// Runs after the library's static destructors, which still log. Handles are closed first: their objects use what the
// hooks release.
[[gnu::destructor(101)]] void Unload()
{
    layer::CloseAllHandles();
    Run(&LifecycleHooks::AtUnload);
    if (const std::unique_ptr<ThreadEndKey> key(threadEndKey.exchange(nullptr)); key && key->Made)
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
    static std::mutex once;
    if (watched.load(std::memory_order_acquire))
        return true;
    const std::lock_guard<std::mutex> guard(once);
    if (!watched.load(std::memory_order_relaxed))
        watched.store(pthread_atfork(BeforeFork, AfterForkInParent, AfterForkInChild) == 0, std::memory_order_release);
    return watched.load(std::memory_order_relaxed);
}

std::uint32_t ForkGeneration()
{
    return forkGeneration.load(std::memory_order_relaxed);
}

bool StartWatchingThreadEnd()
{
    ThreadEndKey* key = threadEndKey.load(std::memory_order_acquire);
    if (key == nullptr) {
        const std::lock_guard<std::mutex> guard(TableLock());
        key = threadEndKey.load(std::memory_order_relaxed);
        if (key == nullptr) {
            key = new (std::nothrow) ThreadEndKey;
            threadEndKey.store(key, std::memory_order_release);
        }
    }
    // The destructor of a key runs for every value but null.
    threadEndWatched = key != nullptr && key->Made && pthread_setspecific(key->Key, key) == 0;
    return threadEndWatched;
}

}  // namespace layer
