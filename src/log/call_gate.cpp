// Counts the calls inside the log and waits for the last of them.
#include "log/call_gate.h"

#include "settings/tag_specification.h"

#include <chrono>
#include <thread>

namespace logging {

namespace {

constexpr std::uint64_t ClosedBit = 0x80000000;
constexpr std::uint64_t CountMask = ClosedBit - 1;
constexpr unsigned ProcessShift = 32;

}  // namespace

/// The state as this process has to see it: without the calls of the process from which it was forked.
std::uint64_t CallGate::CurrentState(std::uint64_t state) const
{
    const std::uint64_t process = GetCurrentProcessId();
    return state >> ProcessShift == process ? state : process << ProcessShift | (state & ClosedBit);
}

bool CallGate::Enter()
{
    std::uint64_t seen = State.load(std::memory_order_relaxed);
    for (;;) {
        const std::uint64_t current = CurrentState(seen);
        if ((current & ClosedBit) != 0)
            return false;
        if (State.compare_exchange_weak(seen, current + 1, std::memory_order_acquire, std::memory_order_relaxed))
            return true;
    }
}

bool CallGate::Close(DWORD milliseconds)
{
    std::uint64_t seen = State.load(std::memory_order_relaxed);
    while (!State.compare_exchange_weak(seen, CurrentState(seen) | ClosedBit, std::memory_order_relaxed)) {
    }
    const auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(milliseconds);
    while ((State.load(std::memory_order_acquire) & CountMask) != 0) {
        if (std::chrono::steady_clock::now() >= end)
            return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return true;
}

}  // namespace logging
