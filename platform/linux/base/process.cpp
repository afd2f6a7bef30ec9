// The ids of the process and the thread. Each costs a system call and every log record contains both, so they are
// cached. Only `fork` changes them, and its hook clears the cache.
#include "base/process.h"

#include "base/lifecycle.h"

#include <atomic>
#include <sys/syscall.h>
#include <unistd.h>

namespace {

std::atomic<DWORD> processId{0};

void ForgetIds()
{
    processId = 0;
    layer::threadId = 0;
}

// The other threads do not exist in the child, so their cached ids need no clearing.
constinit layer::LifecycleHooks hooks{.AfterForkInChild = ForgetIds, .AtThreadEnd = nullptr, .AtUnload = nullptr};

/// @return false if forks cannot be noticed, so that nothing may be cached
bool WatchForks()
{
    layer::RegisterHooks(hooks);
    return layer::WatchForks();
}

}  // namespace

constinit thread_local DWORD layer::threadId = 0;

DWORD GetCurrentProcessId()
{
    DWORD id = processId.load(std::memory_order_relaxed);
    if (id == 0) {
        id = static_cast<DWORD>(getpid());
        if (WatchForks())
            processId.store(id, std::memory_order_relaxed);
    }
    return id;
}

DWORD GetCurrentThreadId()
{
    if (layer::threadId != 0)
        return layer::threadId;
    const auto id = static_cast<DWORD>(syscall(SYS_gettid));
    if (WatchForks())
        layer::threadId = id;
    return id;
}
