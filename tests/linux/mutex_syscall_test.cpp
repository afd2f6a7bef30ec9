// A named mutex without contention is taken and released without a system call: the kernel kills a process that makes
// one here.
#include "testkit/linux/child.h"
#include "testkit/test_machine.h"

#include "tessmaru/platform.h"
#include "tessmaru/text.h"

#include <gtest/gtest.h>

#include <csignal>
#include <cstddef>
#include <iterator>

#include <linux/filter.h>
#include <linux/seccomp.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <unistd.h>

using namespace utility::literals;

namespace {

/// From now on every system call of this process but exit_group ends it with SIGSYS.
bool ForbidSystemCalls()
{
    sock_filter program[] = {
        BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr)),
        BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, SYS_exit_group, 0, 1),
        BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW),
        BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_KILL_PROCESS),
    };
    const sock_fprog filter = {static_cast<unsigned short>(std::size(program)), program};
    return prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) == 0 && prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &filter) == 0;
}

/// The end of a process that runs `work` after its system calls were forbidden: 0 if `work` succeeded, 3 if they could
/// not be forbidden, minus the signal that ended the process.
template <class Work>
int EndUnderBan(Work work)
{
    return testkit::Child([&work] {
               const HANDLE mutex = CreateMutexW(nullptr, FALSE, u"Quiet.Mutex"_w);
               if (mutex == nullptr || WaitForSingleObject(mutex, 1000) != WAIT_OBJECT_0 || !ReleaseMutex(mutex))
                   return 2;
               if (!ForbidSystemCalls())
                   return 3;
               // Not _exit: before a function that does not return, a sanitizer makes its own system calls.
               syscall(SYS_exit_group, work(mutex) ? 0 : 1);
               return 4;
           })
        .Wait();
}

}  // namespace

TEST(MutexSystemCalls, NoneWithoutContention)
{
    const testkit::TestMachine machine;
    const int banned = EndUnderBan([](HANDLE) { return getppid() > 0; });
    if (banned == 3)
        GTEST_SKIP() << "this kernel does not filter system calls";
    ASSERT_EQ(banned, -SIGSYS) << "a system call must be noticed";

    const auto takeAndRelease = [](HANDLE mutex) {
        bool done = true;
        for (int i = 0; i < 1000; ++i) {
            for (const DWORD limit : {DWORD{0}, DWORD{1000}, INFINITE})
                done = done && WaitForSingleObject(mutex, limit) == WAIT_OBJECT_0 && ReleaseMutex(mutex);
        }
        return done;
    };
    EXPECT_EQ(EndUnderBan(takeAndRelease), 0);
}
