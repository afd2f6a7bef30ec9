// Test processes on Linux: forked.
#include "testkit/test_process.h"

#include "testkit/linux/child.h"

#include <csignal>
#include <cstdio>
#include <cstdlib>

namespace testkit {

Process TestProcess::Start(Entry entry, Function work, const void* machine, const ScratchFolder&)
{
    std::fflush(nullptr);
    return Child([=] {
        const int status = entry(work, machine);
        std::fflush(nullptr);
        std::exit(status);
    });
}

void Die()
{
    raise(SIGKILL);
    std::abort();
}

bool IsTestProcess()
{
    return false;
}

int RunTestProcess()
{
    return 1;  // a forked process never reaches `main`
}

}  // namespace testkit
