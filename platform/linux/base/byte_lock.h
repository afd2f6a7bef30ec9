// Locks of single bytes of a file, with which processes show each other what they do with it.
//
// A lock belongs to an open file description (F_OFD_SETLK): the kernel drops it when the last descriptor of a dead
// process is closed, and a `fork` shares it. Unlike `flock`, a change of a lock's kind that fails keeps the former
// kind, and only a descriptor that may write gets an exclusive lock.
#pragma once

#include "base/futex.h"

#include <sys/types.h>

namespace layer {

enum class ByteLock { none, shared, exclusive };

/// Sets the lock of this open file description on one byte, at once or not at all.
/// @return false with `errno` set; IsLockConflict says whether another open file description has the byte
bool SetByteLock(int file, off_t byte, ByteLock kind);

/// Waits for a byte until the deadline. Polls, because the kernel's waiting call has no time limit, and any account
/// that can open the file can hold the byte for ever.
/// @return false with `errno` set, ETIMEDOUT at the deadline
bool WaitForByteLock(int file, off_t byte, ByteLock kind, Deadline& deadline);

/// Whether a lock failed because of another lock.
bool IsLockConflict(int error);

}  // namespace layer
