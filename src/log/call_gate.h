// Admits calls to the log until the log is closed for good.
#pragma once

#include "system.h"

#include <atomic>
#include <cstdint>

namespace logging {

/// Counts the calls that are inside the log. Threads may still log when the process ends: their calls have to finish
/// before the log is taken down, and later ones must not enter it.
class CallGate {
public:
    constexpr CallGate() = default;

    /// @return false after Close
    bool Enter();
    void Leave() { State.fetch_sub(1, std::memory_order_release); }

    /// Admits no further call, and waits until those inside have left.
    /// @return false if that took longer than `milliseconds`
    bool Close(DWORD milliseconds);

private:
    std::uint64_t CurrentState(std::uint64_t state) const;

    /// The process id, one bit for "closed", and the number of calls inside. In the child of a `fork` the id differs:
    /// the calls that were counted run in threads that do not exist there.
    std::atomic<std::uint64_t> State{0};
};

/// The gate of the process's one log.
inline constinit CallGate gate;

/// One call, from its construction to its destruction.
class Call {
public:
    Call() : Admitted(gate.Enter()) {}
    Call(const Call&) = delete;
    Call& operator=(const Call&) = delete;
    ~Call()
    {
        if (Admitted)
            gate.Leave();
    }

    bool isAdmitted() const { return Admitted; }

private:
    const bool Admitted;
};

}  // namespace logging
