// One run of a mode: its folder, its settings, what its writers report, and what was found.
#pragma once

#include "soak/family.h"
#include "soak/mode.h"
#include "soak/verdict.h"

#include "testkit/environment_variable.h"
#include "testkit/scratch_folder.h"
#include "testkit/settings_store.h"
#include "testkit/writer_reports.h"

#include <chrono>
#include <filesystem>
#include <random>
#include <string>

namespace soak {

class Run {
public:
    Run(const NamedMode& mode, const Options& options);

    /// Runs all generations and checks them. @return what was found; a failure of the run itself is the fault "broken"
    const Verdict& Execute();

    /// The files stay after the run.
    void KeepFiles() { Folder.Keep(); }

    Verdict Found;
    const std::string Name;
    const Options Config;
    testkit::ScratchFolder Folder;
    const testkit::SettingsStore Settings;
    const std::filesystem::path Log;
    const std::filesystem::path Old;
    const testkit::WriterReports Reports;
    const std::unique_ptr<Mode> Manner;
    std::mt19937 Chance;
    const std::chrono::steady_clock::time_point Limit;
    unsigned Generation = 0;

private:
    void AddReports();
    void RunGeneration();
    void CheckRollover();

    const testkit::EnvironmentVariable Zone;  // a change of the local time would disorder the time stamps
    std::uint64_t FormerHash;                 // of the log that the next generation moves aside
};

}  // namespace soak
