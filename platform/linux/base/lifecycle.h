// Events in the life of the process: `fork`, the end of a thread, unloading of the library.
//
// A family that keeps something per process or per thread registers hooks here. So this file knows no family, and no
// family has to know another one's clean-up.
#pragma once

#include <atomic>
#include <cstdint>

namespace layer {

/// What a family does at each event; null where it does nothing. Hooks are static objects without a destructor, since
/// the last events come after static destruction.
struct LifecycleHooks {
    void (*AfterForkInChild)();  ///< in the child of a `fork`, under the table lock; no other thread exists yet
    void (*AtThreadEnd)();       ///< on an ending thread for which WatchThreadEnd was called
    void (*AtUnload)();          ///< after the library's static destructors, when all handles are closed

    std::atomic<bool> Registered{false};
    LifecycleHooks* Next = nullptr;
};

/// Registers hooks. Further calls with the same hooks do nothing. At each event the hooks registered last run first,
/// as destructors do. Must not be called under the table lock.
void RegisterHooks(LifecycleHooks& hooks);

/// Makes sure that the layer notices each `fork`. A family calls it before it keeps something that a child must not
/// inherit unchanged. @return false if there is no memory; the next call tries again.
bool WatchForks();

/// The number of forks between the first process and this one. A lock taken in another generation is held by a thread
/// that does not exist in this process.
std::uint32_t ForkGeneration();

/// Whether the layer will notice the end of the calling thread. Of the initial-exec model, since each acquisition of a
/// lock reads it: one instruction instead of a call.
extern constinit thread_local bool threadEndWatched __attribute__((tls_model("initial-exec")));

bool StartWatchingThreadEnd();

/// Makes sure that the layer notices the end of the calling thread. @return false if there is no memory.
inline bool WatchThreadEnd()
{
    return threadEndWatched || StartWatchingThreadEnd();
}

}  // namespace layer
