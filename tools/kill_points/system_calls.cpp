// One row for each system call that the log makes.
#include "system_calls.h"

#include <cerrno>
#include <fcntl.h>
#include <linux/futex.h>
#include <sys/syscall.h>

namespace kill_points {
namespace {

struct Row {
    long Number;
    const char* Name;
    std::vector<int> Errors;
};

const std::vector<Row>& Rows()
{
    static const std::vector<Row> rows = {
        {SYS_access, "access", {EACCES}},
        {SYS_brk, "brk", {ENOMEM}},
        {SYS_clock_nanosleep, "clock_nanosleep", {EINTR}},
        {SYS_close, "close", {EIO, EINTR}},
        {SYS_exit_group, "exit_group", {}},
        {SYS_fallocate, "fallocate", {ENOSPC, EOPNOTSUPP, EINTR}},
        {SYS_fchmod, "fchmod", {EPERM, EROFS}},
        {SYS_fcntl, "fcntl", {ENOLCK, EINTR, EAGAIN}},
        {SYS_flock, "flock", {EWOULDBLOCK, ENOLCK, EINTR}},
        {SYS_ftruncate, "ftruncate", {EIO, EINTR}},
        {SYS_futex, "futex", {EINTR, EAGAIN}},
        {SYS_geteuid, "geteuid", {}},
        {SYS_getpid, "getpid", {}},
        {SYS_getrandom, "getrandom", {}},
        {SYS_gettid, "gettid", {}},
        {SYS_linkat, "linkat", {ENOSPC, EPERM, EEXIST}},
        {SYS_lseek, "lseek", {}},
        {SYS_mmap, "mmap", {ENOMEM}},
        {SYS_mprotect, "mprotect", {ENOMEM}},
        {SYS_munmap, "munmap", {ENOMEM}},
        {SYS_newfstatat, "newfstatat", {EIO, EACCES, ENOMEM}},
        {SYS_openat, "openat", {EMFILE, EACCES, EIO, ENOMEM}},
        {SYS_pread64, "pread64", {EIO, EINTR}},
        {SYS_read, "read", {EIO, EINTR}},
        {SYS_readlink, "readlink", {EACCES}},
        {SYS_rename, "rename", {EACCES, EIO, ENOSPC}},
        {SYS_rt_sigaction, "rt_sigaction", {}},
        {SYS_rt_sigprocmask, "rt_sigprocmask", {}},
        {SYS_rt_sigreturn, "rt_sigreturn", {}},
        {SYS_sched_yield, "sched_yield", {}},
        {SYS_unlink, "unlink", {EACCES, EIO}},
        {SYS_write, "write", {EIO, ENOSPC, EINTR}},
    };
    return rows;
}

const Row* FindRow(const SystemCall& call)
{
    for (const Row& row : Rows()) {
        if (row.Number == call.Number)
            return &row;
    }
    return nullptr;
}

}  // namespace

std::vector<int> FailuresOf(const SystemCall& call)
{
    const Row* const row = FindRow(call);
    if (row == nullptr)
        return {};
    if (call.Number == SYS_fcntl && call.Arguments[1] == F_DUPFD_CLOEXEC)
        return {EMFILE};
    // To wake sleepers cannot fail.
    const bool isWake =
        call.Number == SYS_futex && (call.Arguments[1] & ~std::uint64_t{FUTEX_PRIVATE_FLAG}) != FUTEX_WAIT;
    return isWake ? std::vector<int>() : row->Errors;
}

bool IsWrite(const SystemCall& call)
{
    return call.Number == SYS_write && call.Arguments[2] > 1;
}

bool IsStatusOfDescriptor(const SystemCall& call)
{
    return call.Number == SYS_newfstatat && (call.Arguments[3] & AT_EMPTY_PATH) != 0;
}

std::string NameOf(const SystemCall& call)
{
    const Row* const row = FindRow(call);
    return row != nullptr ? row->Name : "system call " + std::to_string(call.Number);
}

}  // namespace kill_points
