// The machine of one run: a scratch folder with the log, the settings and the folder of the mutexes.
#pragma once

#include "testkit/environment_variable.h"
#include "testkit/process.h"
#include "testkit/scratch_folder.h"
#include "testkit/settings_store.h"
#include "traced_process.h"
#include "writer.h"

#include <optional>
#include <string>
#include <vector>

namespace kill_points {

/// What is there when the disturbed process starts.
struct Scenario {
    const char* Name;
    bool HasOldLog;     // an earlier log and its predecessor: the opener rolls over
    bool HasHolder;     // another process has the log open
    bool HasDeadOwner;  // the earlier process was killed inside a write: half a record, the mutex's file, an owned word
    bool IsMoved;       // the log is moved away while the disturbed process has it open
};

/// The contents of the log files; nothing for a missing one.
struct Files {
    std::optional<std::string> Current;
    std::optional<std::string> Previous;
    std::optional<std::string> Moved;
};

class Machine {
public:
    explicit Machine(const Scenario& scenario);

    /// The arguments of a writer on this machine.
    std::vector<std::string> Words(Writer writer, const std::vector<std::string>& more) const;

    /// The calls of a whole run of the disturbed process.
    Course RunDisturbed(const std::vector<Disturbance>& disturbances, const std::string& plant) const;

    /// Lets the holder write up to `goal`. @return false if it does not in time
    bool HolderReaches(unsigned goal) const;

    /// @return the exit status of the holder
    std::optional<int> EndHolder();

    Files Read() const;
    std::vector<std::string> NamesIn(const std::string& folder) const;

    /// @throws std::runtime_error if the scenario cannot be made
    void Prepare();

    const Scenario& Kind;
    testkit::ScratchFolder Folder;
    const testkit::SettingsStore Settings;
    const testkit::EnvironmentVariable Runtime;
    const Shared Memory;

private:
    std::size_t FindLongWrite() const;
    void LeaveDeadOwner() const;
    bool StartHolder();

    std::optional<testkit::Process> HolderProcess;
};

/// Waits for the end of a process. @return the exit status, nothing if the process has to be killed at the time limit
std::optional<int> WaitInTime(testkit::Process& process);

}  // namespace kill_points
