// Events of the process: `fork`, the end of a thread, the unloading of the library.
//
// A family that keeps state per process or per thread registers hooks here. This file therefore depends on no family,
// and no family on the clean-up of another.
#pragma once

#include <atomic>
#include <cstdint>

namespace layer {

/// The functions of a family that run at each event; null where it has none. Hooks are static objects without a
/// destructor, because the last events come after static destruction.
struct LifecycleHooks {
    void (*AfterForkInChild)();  ///< runs in the child of a `fork`, under the table lock, while it has one thread
    void (*AtThreadEnd)();       ///< runs on an ending thread that has called WatchThreadEnd
    void (*AtUnload)();          ///< runs after the library's static destructors, when all handles are closed

    // Set by RegisterHooks.
    std::atomic<bool> Registered{false};
    LifecycleHooks* Next = nullptr;
};

/// Registers hooks; further calls with the same hooks do nothing. At each event the hooks registered last run first,
/// like destructors. Must not be called under the table lock.
void RegisterHooks(LifecycleHooks& hooks);

/// Installs the handlers that run the hooks at each `fork`. A family calls it before it keeps state that a child must
/// not inherit unchanged.
/// @return false if memory is exhausted; the next call tries again
bool WatchForks();

/// The number of forks between the first process and this one. A lock that was taken in another generation is held by a
/// thread that does not exist in this process.
std::uint32_t ForkGeneration();

/// The number of forks that this process and those that it was forked from have made. After a fork the two processes
/// share the open file descriptions of before, with their locks.
std::uint32_t ForkCount();

/// Whether the hooks will run at the end of the calling thread. Each acquisition of a lock reads it, hence the
/// initial-exec model: an access is one instruction instead of a call.
extern constinit thread_local bool threadEndWatched __attribute__((tls_model("initial-exec")));

/// The slow path of WatchThreadEnd.
bool StartWatchingThreadEnd();

/// Makes the hooks run at the end of the calling thread. @return false if memory is exhausted
inline bool WatchThreadEnd()
{
    return threadEndWatched || StartWatchingThreadEnd();
}

}  // namespace layer
