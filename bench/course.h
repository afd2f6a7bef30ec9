// The state that the benchmark shares with the writing processes, in a file that they map.
#pragma once

#include "testkit/mapped_file.h"

#include <atomic>
#include <cstdint>

#include <time.h>

namespace bench {

constexpr unsigned MostLanes = 16;

/// One run. Every thread of every process has a lane. All start together and are timed from the first start to the last
/// end.
struct Course {
    std::atomic<std::uint32_t> Ready;  // lanes that wait for the start
    std::atomic<std::uint32_t> Go;
    std::atomic<std::uint32_t> Failed;  // records that could not be written
    std::uint32_t Records;              // of each lane
    struct Lane {
        std::int64_t Begin;
        std::int64_t End;
    } Lanes[MostLanes];
};

using SharedCourse = testkit::SharedValue<Course>;

/// Nanoseconds of the clock that all processes share.
inline std::int64_t Now()
{
    timespec time{};
    clock_gettime(CLOCK_MONOTONIC, &time);
    return std::int64_t{time.tv_sec} * 1000000000 + time.tv_nsec;
}

}  // namespace bench
