// The life of the process as the layer's families see it: `fork`, the ends of threads, unloading.
#pragma once

#include "layer.h"

namespace layer {

/// Makes sure that the layer notices each `fork`. Every family that keeps something per process calls it
/// before it does. False without memory.
bool WatchForks();

/// How many forks lie between the first process and this one. What an earlier generation locked is held by
/// threads that do not exist here.
std::uint32_t ForkGeneration();

// What every taking of a lock asks of its thread. Of the initial-exec model: one instruction instead of a call.

/// The id of the calling thread once it has asked for it, else 0.
extern constinit thread_local DWORD threadId __attribute__((tls_model("initial-exec")));

/// Whether the layer will notice the end of the calling thread.
extern constinit thread_local bool threadEndWatched __attribute__((tls_model("initial-exec")));

/// Something that differs between all living threads of this process, never 0.
inline std::uintptr_t CurrentThread()
{
    return reinterpret_cast<std::uintptr_t>(&threadId);
}

// The named mutexes' share of the events. Each is told in its place.
bool CloseMutex(HANDLE handle);
void ReopenMutexesAfterFork();
void AbandonMutexesOfThread();

bool StartWatchingThreadEnd();

/// Gives up what the calling thread keeps for its translator, which it then has no more.
void ReleaseFaultState();

/// Makes sure that the layer notices the end of this thread. False without memory.
inline bool WatchThreadEnd()
{
    return threadEndWatched || StartWatchingThreadEnd();
}

// Unloading, after the static destructors of the library.
void ShutAllHandles();
void ReleaseSharedPages();
void ReleaseFileSignal();
void ReleaseFaultSignals();

}  // namespace layer
