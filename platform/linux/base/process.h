// Identities: the ids of the process and the thread, and a value that identifies a thread inside the process.
#pragma once

#include "system.h"

namespace layer {

/// The id of the calling thread once it was read, else 0. Of the initial-exec model, since each acquisition of a lock
/// uses its address: one instruction instead of a call.
extern constinit thread_local DWORD threadId __attribute__((tls_model("initial-exec")));

/// A value that differs between all living threads of this process, never 0.
inline std::uintptr_t CurrentThread()
{
    return reinterpret_cast<std::uintptr_t>(&threadId);
}

}  // namespace layer
