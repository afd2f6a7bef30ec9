// Runs functions of the signal handler that may fault themselves.
#include "faults/guarded.h"

#include <cerrno>
#include <csignal>

namespace {

// Of the initial-exec model: the signal handler reads it, and other models may call a function that allocates.
constinit thread_local sigjmp_buf* leave __attribute__((tls_model("initial-exec"))) = nullptr;

}  // namespace

bool layer::RunGuarded(void (*work)(void*), void* argument)
{
    sigset_t faults;
    sigset_t former;
    sigemptyset(&faults);
    sigaddset(&faults, SIGSEGV);
    sigaddset(&faults, SIGBUS);
    sigjmp_buf here;
    const int savedError = errno;
    // The kernel ends a process that faults while the signal is blocked, as it is in its own handler.
    pthread_sigmask(SIG_UNBLOCK, &faults, &former);
    const bool isFirstPass = sigsetjmp(here, 0) == 0;
    if (isFirstPass) {
        leave = &here;
        work(argument);
    }
    leave = nullptr;
    pthread_sigmask(SIG_SETMASK, &former, nullptr);
    errno = savedError;
    return isFirstPass;
}

void layer::LeaveGuarded()
{
    if (leave != nullptr)
        siglongjmp(*leave, 1);
}
