// Handles SIGXFSZ. SIG_IGN would do the same, but it would survive `exec` and so change the programs that the process
// starts.
#include "base/file_size_signal.h"

#include "base/lifecycle.h"

#include <csignal>

namespace {

void OnFileSizeSignal(int) {}

std::atomic<bool> handled{false};

/// Restores the default action, unless the program has installed its own handler since then.
void RestoreDefault()
{
    struct sigaction current {};
    if (handled.exchange(false) && sigaction(SIGXFSZ, nullptr, &current) == 0 && (current.sa_flags & SA_SIGINFO) == 0 &&
        current.sa_handler == OnFileSizeSignal) {
        current.sa_handler = SIG_DFL;
        sigaction(SIGXFSZ, &current, nullptr);
    }
}

constinit layer::LifecycleHooks hooks{.AfterForkInChild = nullptr, .AtThreadEnd = nullptr, .AtUnload = RestoreDefault};

}  // namespace

void layer::HandleFileSizeSignal()
{
    if (handled.load(std::memory_order_relaxed) || handled.exchange(true))
        return;
    RegisterHooks(hooks);
    struct sigaction current {};
    if (sigaction(SIGXFSZ, nullptr, &current) != 0 || current.sa_handler != SIG_DFL)
        return;
    struct sigaction action {};
    action.sa_handler = OnFileSizeSignal;
    action.sa_flags = SA_RESTART;
    sigaction(SIGXFSZ, &action, nullptr);
}
