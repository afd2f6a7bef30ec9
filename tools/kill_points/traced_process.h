// Runs this program again as a process that stops at each of its system calls, and disturbs chosen calls.
//
//     const Course course = Trace({"--write", folder}, {{12, Act::killBefore}}, uncounted);
#pragma once

#include <array>
#include <atomic>
#include <chrono>
#include <cstdint>
#include <string>
#include <vector>

namespace kill_points {

/// No process of a run may take longer. The library itself waits 5 seconds at most, when it opens a mutex.
constexpr std::chrono::seconds TimeLimit{10};

enum class Act {
    killBefore,  // SIGKILL; the call does not run
    killAfter,   // SIGKILL; the call has run
    killInside,  // a write writes only its first half, then SIGKILL
    cut,         // a write writes only its first half
    fail         // the call does not run and returns an error; a close does run, as the kernel's does
};

/// One disturbed system call. Calls are counted from 0.
struct Disturbance {
    std::size_t Call;
    Act What;
    int Error = 0;  // for `fail`
};

struct SystemCall {
    long Number = -1;
    std::array<std::uint64_t, 6> Arguments{};
};

/// What a traced process did.
struct Course {
    enum class End { exited, killed, crashed, hung };

    End How = End::exited;
    int Status = 0;  // the exit status; for `crashed` the signal
    std::vector<SystemCall> Calls;
    int DescriptorsLeft = 0;  // at the exit, more than at the start
};

/// Starts this program with `words`; it has to call StopForTracer. @param uncounted while not 0, calls are not counted
/// @throws std::system_error
Course Trace(const std::vector<std::string>& words, const std::vector<Disturbance>& disturbances,
             const std::atomic<std::uint32_t>& uncounted);

/// Waits for the tracer: the calls after this one count. @return false if this process cannot be traced
bool StopForTracer();

}  // namespace kill_points
