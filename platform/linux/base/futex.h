// Sleeping until a 32-bit word changes (futex), and a lock built on such a word.
#pragma once

#include <atomic>
#include <cstdint>

namespace layer {

/// Which threads share a word: those of this process, or those of all processes that map its page. The kernel finds the
/// sleepers of a process faster.
enum class Reach { process, machine };

/// The end of a timed wait. The time starts with the first call of Left, so that taking a free lock does not read the
/// clock.
class Deadline {
public:
    /// @param milliseconds the length of the wait; INFINITE never ends
    explicit Deadline(std::uint32_t milliseconds) : Milliseconds(milliseconds) {}

    /// The remaining time in nanoseconds. @param limit the largest result. @return 0 if the wait is over
    std::int64_t Left(std::int64_t limit);

private:
    const std::uint32_t Milliseconds;
    std::int64_t End = 0;  // in nanoseconds of the monotonic clock; 0 until the first call of Left
};

/// Sleeps while `word` holds `expected`. May return early for no reason, so the caller checks the word again.
/// @param nanoseconds the longest sleep
/// @return false if the time has run out
bool FutexWait(std::atomic<std::uint32_t>& word, std::uint32_t expected, std::int64_t nanoseconds, Reach reach);

/// Wakes one thread that sleeps in FutexWait on this word, if there is one.
void FutexWake(std::atomic<std::uint32_t>& word, Reach reach);

/// Takes a lock inside one process. It is not recursive. The word is 0 while the lock is free; otherwise it holds the
/// fork generation of the holder. The child of a `fork` therefore treats the locks of its parent's threads as free.
/// @return false if the deadline has passed
bool LockWord(std::atomic<std::uint32_t>& word, Deadline& deadline);

/// Releases the lock and wakes one waiting thread.
void UnlockWord(std::atomic<std::uint32_t>& word);

/// Whether a thread of this process holds the lock, and not only a thread of a process that it was forked from.
bool IsLockedInThisProcess(const std::atomic<std::uint32_t>& word);

}  // namespace layer
