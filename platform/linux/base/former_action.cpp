// Runs the former action of a signal as the kernel would have run it.
#include "base/former_action.h"

#include <sys/ucontext.h>

namespace {

/// @param disposition SIG_DFL or SIG_IGN
bool HasDisposition(const struct sigaction& action, sighandler_t disposition)
{
    return (action.sa_flags & SA_SIGINFO) == 0 && action.sa_handler == disposition;
}

bool HasFlag(const struct sigaction& action, unsigned int flag)
{
    return (static_cast<unsigned int>(action.sa_flags) & flag) != 0;
}

/// Blocks the signals that the kernel would have blocked for a handler with this action: those that were blocked at the
/// fault, those of its `sa_mask`, and its own unless it has SA_NODEFER. Ends with the former mask.
class HandlerMask {
public:
    HandlerMask(int signal, const struct sigaction& action, const void* context)
    {
        sigset_t mask;
        sigorset(&mask, &static_cast<const ucontext_t*>(context)->uc_sigmask, &action.sa_mask);
        if (!HasFlag(action, SA_NODEFER))
            sigaddset(&mask, signal);
        pthread_sigmask(SIG_SETMASK, &mask, &Former);
    }
    HandlerMask(const HandlerMask&) = delete;
    HandlerMask& operator=(const HandlerMask&) = delete;
    ~HandlerMask() { pthread_sigmask(SIG_SETMASK, &Former, nullptr); }

private:
    sigset_t Former;
};

}  // namespace

void layer::FormerAction::Set(const struct sigaction& action)
{
    Action = action;
    Spent = false;
}

struct sigaction layer::FormerAction::Restorable() const
{
    const struct sigaction standard {
    };
    return Spent ? standard : Action;
}

bool layer::FormerAction::IsSameAs(const struct sigaction& other) const
{
    const bool hasInfo = HasFlag(Action, SA_SIGINFO);
    return hasInfo == HasFlag(other, SA_SIGINFO) &&
           (hasInfo ? Action.sa_sigaction == other.sa_sigaction : Action.sa_handler == other.sa_handler);
}

bool layer::FormerAction::IsFunction() const
{
    return !Spent && !HasDisposition(Action, SIG_DFL) && !HasDisposition(Action, SIG_IGN);
}

void layer::FormerAction::Run(int signal, siginfo_t* info, void* context, bool recurs)
{
    const bool sent = info->si_code <= 0;  // sent with `kill` or similar, not caused by a fault
    // The kernel does not let a process ignore a fault: it treats SIG_IGN like SIG_DFL then.
    if (HasDisposition(Action, SIG_IGN) && sent)
        return;
    if (!IsFunction() || (HasFlag(Action, SA_RESETHAND) && Spent.exchange(true))) {
        EndBySignal(signal, !sent && recurs);
        return;
    }
    const HandlerMask mask(signal, Action, context);
    if (HasFlag(Action, SA_SIGINFO))
        Action.sa_sigaction(signal, info, context);
    else
        Action.sa_handler(signal);
}

void layer::EndBySignal(int signal, bool recurs)
{
    struct sigaction action {};
    action.sa_handler = SIG_DFL;
    sigaction(signal, &action, nullptr);
    // A raised signal stays pending until the handler returns, as it is blocked in its own handler.
    if (!recurs)
        raise(signal);
}
