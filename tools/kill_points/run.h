// One run of a scenario: the disturbed process, then its successor, then the checks of what they left.
#pragma once

#include "machine.h"

#include <string>
#include <vector>

namespace kill_points {

struct RunResult {
    Course Traced;
    std::vector<std::string> Findings;  // faults
    unsigned Unreported = 0;            // whole records that a killed process could not report any more
    unsigned Torn = 0;                  // ends of records that were cut
    unsigned Left = 0;                  // files of mutexes that stay until the next process has closed the log
    double SuccessorSeconds = 0;
};

/// @param plant a fault on purpose in the disturbed process; empty for none
RunResult RunOnce(const Scenario& scenario, const std::vector<Disturbance>& disturbances,
                  const std::string& plant = {});

}  // namespace kill_points
