// Processes of one program that end together.
//
//     ProcessFamily family;
//     Process& process = family.Start({"--write"});   // in its `main`: ... WaitToEnd();
//     EXPECT_TRUE(family.End());
#pragma once

#include "testkit/pipe.h"
#include "testkit/process.h"
#include "testkit/program.h"

#include <deque>
#include <filesystem>
#include <string>
#include <vector>

namespace testkit {

/// The standard input of each process is a pipe that closes when the processes may end. So no process ends early, and
/// none outlives a family that was killed. The destructor kills what still runs.
class ProcessFamily {
public:
    explicit ProcessFamily(const std::filesystem::path& program = ThisProgram()) : Program(program) {}
    ProcessFamily(const ProcessFamily&) = delete;
    ProcessFamily& operator=(const ProcessFamily&) = delete;

    /// Starts a process. @return the process; valid as long as the family.
    Process& Start(const std::vector<std::string>& arguments);

    /// Whether every process that was not killed still runs.
    bool AllRun() const;

    /// Lets all processes end and waits for them. @return whether each exit status is 0.
    bool End();

private:
    const std::filesystem::path Program;
    Pipe MayEnd;
    std::deque<Process> Members;
};

/// In a process of a family: waits until it may end.
inline void WaitToEnd()
{
    WaitForEndOfInput();
}

}  // namespace testkit
