// Who runs: process and thread ids, `fork`, the ends of threads and of the library, the environment, debug output.
#include "process.h"

#include <cstdio>
#include <cstdlib>
#include <memory>
#include <new>
#include <pthread.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace {

// A record needs both ids, and each costs a system call; they change by `fork` alone.
std::atomic<DWORD> processId{0};

std::atomic<std::uint32_t> forkGeneration{0};
std::mutex tableLock;

void BeforeFork()
{
    tableLock.lock();
}

void AfterForkInParent()
{
    tableLock.unlock();
}

void AfterForkInChild()
{
    processId = 0;
    layer::threadId = 0;
    forkGeneration.fetch_add(1, std::memory_order_relaxed);
    layer::ReopenMutexesAfterFork();
    tableLock.unlock();
}

void AtThreadEnd(void*)
{
    // Another destructor of the thread may still log: it is then watched again.
    layer::threadEndWatched = false;
    layer::AbandonMutexesOfThread();
    layer::ReleaseFaultState();
}

// A key, not a thread_local with a destructor: that would keep the library loaded until its threads end.
struct ThreadEndKey {
    ThreadEndKey() : Made(pthread_key_create(&Key, AtThreadEnd) == 0) {}

    pthread_key_t Key{};
    const bool Made;
};
std::atomic<ThreadEndKey*> threadEndKey{nullptr};

// Runs behind the library's static destructors, which still log.
[[gnu::destructor(101)]] void Unload()
{
    layer::ShutAllHandles();
    layer::ReleaseSharedPages();
    layer::ReleaseFileSignal();
    layer::ReleaseFaultSignals();
    layer::ReleaseFaultState();
    if (const std::unique_ptr<ThreadEndKey> key(threadEndKey.exchange(nullptr)); key && key->Made)
        pthread_key_delete(key->Key);
}

}  // namespace

namespace layer {

constinit thread_local DWORD threadId = 0;
constinit thread_local bool threadEndWatched = false;

std::mutex& TableLock()
{
    return tableLock;
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
        const std::lock_guard<std::mutex> guard(tableLock);
        key = threadEndKey.load(std::memory_order_relaxed);
        if (key == nullptr) {
            key = new (std::nothrow) ThreadEndKey;
            threadEndKey.store(key, std::memory_order_release);
        }
    }
    // Any value but null makes the end of the thread known.
    threadEndWatched = key != nullptr && key->Made && pthread_setspecific(key->Key, key) == 0;
    return threadEndWatched;
}

const char* Environment(const char* name)
{
    return secure_getenv(name);
}

void DebugLine(const std::string& line) noexcept
{
    if (Environment("VELTRIX_DEBUG_OUTPUT") != nullptr)
        std::fprintf(stderr, "tessmarU: %s\n", line.c_str());
}

}  // namespace layer

DWORD GetCurrentProcessId()
{
    DWORD id = processId.load(std::memory_order_relaxed);
    if (id == 0) {
        layer::WatchForks();
        id = static_cast<DWORD>(getpid());
        processId.store(id, std::memory_order_relaxed);
    }
    return id;
}

DWORD GetCurrentThreadId()
{
    if (layer::threadId == 0) {
        layer::WatchForks();
        layer::threadId = static_cast<DWORD>(syscall(SYS_gettid));
    }
    return layer::threadId;
}

void OutputDebugStringW(LPCWSTR text)
{
    if (text == nullptr || layer::Environment("VELTRIX_DEBUG_OUTPUT") == nullptr)
        return;
    const int room = WideCharToMultiByte(CP_UTF8, 0, text, -1, nullptr, 0, nullptr, nullptr);
    if (room <= 0)
        return;
    const std::unique_ptr<char[]> narrow(new (std::nothrow) char[static_cast<unsigned>(room)]);
    if (narrow && WideCharToMultiByte(CP_UTF8, 0, text, -1, narrow.get(), room, nullptr, nullptr) > 0)
        std::fputs(narrow.get(), stderr);
}
