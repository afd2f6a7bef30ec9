// Writes the description of a fault that ends the process.
#include "faults/fault_report.h"

#include "common/fault_text.h"
#include "faults/fault_record.h"
#include "faults/guarded.h"

#include <csignal>
#include <ctime>
#include <poll.h>
#include <string_view>
#include <unistd.h>

namespace {

constexpr int PatienceMilliseconds = 1000;

/// Writes to standard error. A pipe without a reader would raise SIGPIPE, which would end the process in place of the
/// fault's signal; a full pipe whose reader has stopped would hold the process for ever.
void Write(const fault_text::Text& text)
{
    pollfd standardError{STDERR_FILENO, POLLOUT, 0};
    if (poll(&standardError, 1, PatienceMilliseconds) <= 0)
        return;
    sigset_t brokenPipe;
    sigset_t former;
    sigemptyset(&brokenPipe);
    sigaddset(&brokenPipe, SIGPIPE);
    pthread_sigmask(SIG_BLOCK, &brokenPipe, &former);
    if (write(STDERR_FILENO, text.Data(), text.Size()) < 0) {
        const timespec atOnce{};
        sigtimedwait(&brokenPipe, nullptr, &atOnce);
    }
    pthread_sigmask(SIG_SETMASK, &former, nullptr);
}

}  // namespace

void layer::ReportFault(const Fault& fault, const ucontext_t& context, const char* reason)
{
    fault_text::Text text;
    // The instruction is decoded; meanwhile another thread may have removed it.
    Guarded([&] {
        const EXCEPTION_RECORD record = RecordOf(fault, FloatFaultsIn(context));
        fault_text::Describe({record.ExceptionCode, reinterpret_cast<std::uintptr_t>(record.ExceptionAddress),
                              record.ExceptionInformation[0], record.ExceptionInformation[1]},
                             text);
    });
    text.Add(std::string_view(text.Data(), text.Size()).ends_with(' ') ? "[not thrown: " : " [not thrown: ");
    text.Add(reason);
    text.Add("]\n");
    Write(text);
}
