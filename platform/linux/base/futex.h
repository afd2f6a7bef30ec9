// Waiting on a 32-bit word, in this process or among several.
#pragma once

#include <atomic>
#include <cstdint>

namespace layer {

enum class Reach { process, machine };

/// The end of a wait of so many milliseconds; that of INFINITE never comes. The time runs from the first question,
/// so a lock that is free costs no look at the clock.
class Deadline {
public:
    explicit Deadline(std::uint32_t milliseconds) : Milliseconds(milliseconds) {}

    /// What is left, at most `limit` nanoseconds; 0 when the time has come.
    std::int64_t Left(std::int64_t limit);

private:
    const std::uint32_t Milliseconds;
    std::int64_t End = 0;  // in nanoseconds of the monotonic clock, once it is known
};

/// Sleeps while `word` holds `expected`, at most so many nanoseconds. May wake for no reason.
/// False if it slept the whole time.
bool FutexWait(std::atomic<std::uint32_t>& word, std::uint32_t expected, std::int64_t nanoseconds, Reach reach);

/// Wakes one sleeper.
void FutexWake(std::atomic<std::uint32_t>& word, Reach reach);

/// A lock of one process, not recursive, in a word that is 0 while it is free. A holder's word tells the
/// generation of processes that took it, so that the child of a `fork` takes over what it inherited locked.
/// False when the deadline came first.
bool LockWord(std::atomic<std::uint32_t>& word, Deadline& deadline);
void UnlockWord(std::atomic<std::uint32_t>& word);

/// Whether some thread of this very process holds the lock.
bool LockedHere(const std::atomic<std::uint32_t>& word);

}  // namespace layer
