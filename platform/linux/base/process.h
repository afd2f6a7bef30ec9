// Identities of the process and the thread: their ids, and a cheap value that identifies a thread inside the process.
#pragma once

#include "system.h"

namespace layer {

/// The cached id of the calling thread, 0 until it is read. Each acquisition of a lock uses its address, hence the
/// initial-exec model: an access is one instruction instead of a call.
extern constinit thread_local DWORD threadId __attribute__((tls_model("initial-exec")));

/// Identifies the calling thread: a value other than 0 that no other running thread of this process has. A later thread
/// may get the same value.
inline std::uintptr_t CurrentThread()
{
    return reinterpret_cast<std::uintptr_t>(&threadId);
}

}  // namespace layer
