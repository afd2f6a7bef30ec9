// Compares the cost of two calls, measured in turns in one process.
#pragma once

#include "course.h"

#include "testkit/linux/child.h"
#include "testkit/scratch_folder.h"

#include <algorithm>
#include <cstddef>
#include <functional>
#include <stdexcept>
#include <vector>

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

/// Measures both calls in turns; each is first in every second round. The first round does not count.
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

/// Runs `work` in a child process, which reads the environment as it is now. Nothing that it opens stays open here.
/// @throws std::runtime_error if the child fails.
inline Comparison InOwnProcess(const std::function<Comparison()>& work)
{
    const testkit::ScratchFolder folder;
    const testkit::SharedValue<Comparison> result(folder / "result");
    if (testkit::Child([&] { *result = work(); }).Wait() != 0)
        throw std::runtime_error("a measuring process failed");
    return *result;
}

}  // namespace bench
