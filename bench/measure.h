// Two ways beside each other, in turns, in one process: what one costs in units of the other.
#pragma once

#include "course.h"

#include <algorithm>
#include <cstddef>
#include <exception>
#include <functional>
#include <stdexcept>
#include <vector>

#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

namespace bench {

/// Lowest, middle and highest of the rounds.
struct Spread {
    double Least;
    double Median;
    double Most;
};

inline Spread SpreadOf(std::vector<double> values)
{
    std::sort(values.begin(), values.end());
    return {values.front(), values[values.size() / 2], values.back()};
}

struct Comparison {
    Spread Subject;  // nanoseconds a call
    Spread Floor;    // nanoseconds a call
    Spread Ratio;    // subject to floor, round by round
};

/// Keeps the compiler from dropping the computation of `value`.
template <class Value>
void Use(const Value& value)
{
    asm volatile("" : : "g"(&value) : "memory");
}

template <class Call>
double Time(Call call, unsigned calls)
{
    const auto begin = Now();
    for (unsigned i = 0; i < calls; ++i)
        call(i);
    return static_cast<double>(Now() - begin) / calls;
}

/// Both ways in turns, each first in every other round. The first round does not count.
template <class Subject, class Floor>
Comparison Compare(Subject subject, Floor floor, unsigned calls, unsigned rounds)
{
    std::vector<double> subjects;
    std::vector<double> floors;
    std::vector<double> ratios;
    for (unsigned round = 0; round <= rounds; ++round) {
        double floorTime = round % 2 == 0 ? Time(floor, calls) : 0;
        const double subjectTime = Time(subject, calls);
        if (round % 2 != 0)
            floorTime = Time(floor, calls);
        if (round == 0)
            continue;
        subjects.push_back(subjectTime);
        floors.push_back(floorTime);
        ratios.push_back(subjectTime / floorTime);
    }
    return {SpreadOf(subjects), SpreadOf(floors), SpreadOf(ratios)};
}

/// Runs `work` in a process of its own, which reads the environment as it is now and keeps what it opens to
/// itself.
/// @throws std::runtime_error if `work` threw, or the process ended in another way.
inline Comparison InOwnProcess(const std::function<Comparison()>& work)
{
    int ends[2];
    if (pipe(ends) != 0)
        throw std::runtime_error("no pipe");
    const pid_t process = fork();
    if (process == 0) {
        bool done = false;
        try {
            const Comparison result = work();
            done = write(ends[1], &result, sizeof result) == sizeof result;
        } catch (const std::exception&) {
        }
        _exit(done ? 0 : 1);
    }
    close(ends[1]);
    Comparison result{};
    const bool got = read(ends[0], &result, sizeof result) == sizeof result;
    close(ends[0]);
    if (process < 0 || waitpid(process, nullptr, 0) != process || !got)
        throw std::runtime_error("a measuring process failed");
    return result;
}

}  // namespace bench
