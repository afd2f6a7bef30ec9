// The action that a program had set for a signal before the layer set its own.
#pragma once

#include <atomic>
#include <csignal>

namespace layer {

class FormerAction {
public:
    /// Set before the action can run.
    void Set(const struct sigaction& action);

    /// The action to restore: the default one if it was for one signal only and has run.
    struct sigaction Restorable() const;

    /// Whether both have the same handler.
    bool IsSameAs(const struct sigaction& other) const;

    /// Whether it is a function, which may deal with a fault.
    bool IsFunction() const;

    /// Does for a signal what the kernel would have done: runs the function with its mask, or ends the process.
    /// @param recurs  whether the instruction that failed would fail again
    void Run(int signal, siginfo_t* info, void* context, bool recurs);

private:
    struct sigaction Action {};
    std::atomic<bool> Spent{false};  // it has SA_RESETHAND and has run
};

/// Makes the process end by this signal as soon as the handler returns, at the instruction that failed.
/// @param recurs  whether the instruction fails again then
void EndBySignal(int signal, bool recurs);

}  // namespace layer
