// A named mutex that nobody else wants is taken and released without a system call: the kernel ends a process that
// makes one here.
#include "support.h"

#include "tessmaru/platform.h"
#include "tessmaru/text.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <iterator>

#include <linux/filter.h>
#include <linux/seccomp.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

using namespace utility::literals;

namespace {

/// From here on every system call of the calling process but exit_group ends it with SIGSYS.
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

/// The wait status of a process that runs `work` after its system calls were forbidden.
template <class Work>
int StatusUnderBan(Work work)
{
    const pid_t process = fork();
    if (process == 0) {
        const HANDLE mutex = CreateMutexW(nullptr, FALSE, u"Quiet.Mutex"_w);
        if (mutex == nullptr || WaitForSingleObject(mutex, 1000) != WAIT_OBJECT_0 || !ReleaseMutex(mutex))
            _exit(2);
        if (!ForbidSystemCalls())
            _exit(3);
        // Not _exit: in front of a function that does not return a sanitizer makes system calls of its own.
        syscall(SYS_exit_group, work(mutex) ? 0 : 1);
    }
    int status = -1;
    waitpid(process, &status, 0);
    return status;
}

}  // namespace

TEST(MutexSystemCalls, NoneWhileNobodyWaits)
{
    const support::Machine machine;
    const int banned = StatusUnderBan([](HANDLE) { return getppid() > 0; });
    if (WIFEXITED(banned) && WEXITSTATUS(banned) == 3)
        GTEST_SKIP() << "this kernel does not filter system calls";
    ASSERT_TRUE(WIFSIGNALED(banned)) << "a system call has to be noticed";

    for (const DWORD limit : {DWORD{0}, DWORD{1000}, INFINITE}) {
        const int status = StatusUnderBan([limit](HANDLE mutex) {
            for (int i = 0; i < 1000; ++i) {
                if (WaitForSingleObject(mutex, limit) != WAIT_OBJECT_0 || !ReleaseMutex(mutex))
                    return false;
            }
            return true;
        });
        EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << "limit " << limit << ", status " << status;
    }
}
