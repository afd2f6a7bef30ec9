// Calls of the kernel's futex, and the lock inside one process that is built on it.
#include "base/futex.h"

#include "base/lifecycle.h"
#include "tessmaru/platform.h"

#include <algorithm>
#include <cerrno>
#include <ctime>
#include <linux/futex.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace {

constexpr std::int64_t NanosecondsPerSecond = 1'000'000'000;
constexpr std::int64_t NanosecondsPerMillisecond = 1'000'000;
constexpr std::int64_t LongestSleep = 3600 * NanosecondsPerSecond;

// Layout of a lock word: two flags in the low bits, the fork generation of the holder above them.
constexpr std::uint32_t Locked = 1;
constexpr std::uint32_t Contended = 2;  // set instead of Locked while other threads may sleep on the word
constexpr unsigned GenerationShift = 2;

std::int64_t Now()
{
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return std::int64_t{now.tv_sec} * NanosecondsPerSecond + now.tv_nsec;
}

// The system call takes the kernel's own time structure. It differs from `timespec` where 32-bit programs are built
// with a 64-bit `time_t`.
struct KernelTime {
    long Seconds;
    long Nanoseconds;
};

long Futex(std::atomic<std::uint32_t>& word, int operation, std::uint32_t value, const KernelTime* timeout,
           layer::Reach reach)
{
    if (reach == layer::Reach::process)
        operation |= FUTEX_PRIVATE_FLAG;
    return syscall(SYS_futex, &word, operation, value, timeout, nullptr, 0);
}

}  // namespace

namespace layer {

std::int64_t Deadline::Left(std::int64_t limit)
{
    if (Milliseconds == INFINITE)
        return limit;
    if (Milliseconds == 0)
        return 0;
    const std::int64_t now = Now();
    if (End == 0)  // the first call starts the time
        End = now + Milliseconds * NanosecondsPerMillisecond;
    return std::clamp<std::int64_t>(End - now, 0, limit);
}

bool FutexWait(std::atomic<std::uint32_t>& word, std::uint32_t expected, std::int64_t nanoseconds, Reach reach)
{
    const KernelTime timeout{static_cast<long>(nanoseconds / NanosecondsPerSecond),
                             static_cast<long>(nanoseconds % NanosecondsPerSecond)};
    return Futex(word, FUTEX_WAIT, expected, &timeout, reach) == 0 || errno != ETIMEDOUT;
}

void FutexWake(std::atomic<std::uint32_t>& word, Reach reach)
{
    Futex(word, FUTEX_WAKE, 1, nullptr, reach);
}

bool LockWord(std::atomic<std::uint32_t>& word, Deadline& deadline)
{
    const std::uint32_t generation = ForkGeneration() << GenerationShift;
    std::uint32_t seen = 0;
    // Acquire pairs with the release in UnlockWord: what the previous holder wrote is visible to the next one.
    if (word.compare_exchange_strong(seen, generation | Locked, std::memory_order_acquire))
        return true;
    for (;;) {
        // A holder of another generation does not exist in this process, so its lock counts as free.
        const bool free = seen == 0 || seen >> GenerationShift != generation >> GenerationShift;
        // A thread that has waited takes the lock as Contended: other threads may still be asleep, and only this mark
        // makes the unlock wake one of them.
        if (free || (seen & Contended) == 0) {
            if (!word.compare_exchange_weak(seen, generation | Contended, std::memory_order_acquire))
                continue;
            if (free)
                return true;
        }
        const std::int64_t left = deadline.Left(LongestSleep);
        if (left == 0)
            return false;
        FutexWait(word, generation | Contended, left, Reach::process);
        seen = word.load(std::memory_order_relaxed);
    }
}

bool IsLockedInThisProcess(const std::atomic<std::uint32_t>& word)
{
    const std::uint32_t seen = word.load(std::memory_order_relaxed);
    return seen != 0 && seen >> GenerationShift == (ForkGeneration() << GenerationShift) >> GenerationShift;
}

void UnlockWord(std::atomic<std::uint32_t>& word)
{
    if ((word.exchange(0, std::memory_order_release) & Contended) != 0)
        FutexWake(word, Reach::process);
}

}  // namespace layer
