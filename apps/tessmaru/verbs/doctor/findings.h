// What `tessmaru doctor` finds.
#pragma once

#include "platform/processes.h"
#include "settings/store.h"

#include <optional>
#include <string>
#include <vector>

namespace tool {

enum class Verdict { ok, warning, failure };

/// One line of the result.
struct Finding {
    std::string Check;
    Verdict Result;
    std::string Text;
    std::string Mend;  // the command that mends it; empty if there is none
};

using Findings = std::vector<Finding>;

/// The command that changes the settings.
std::string EditSettings();

/// Checks the settings store. @return the store, if it can be read
std::optional<Store> CheckSettings(Findings& findings);

/// Checks the path of the log, its folder, its file and the disk. @return the path on disk; empty if there is none
std::string CheckLog(Findings& findings);

/// Checks the form of dates.
void CheckDates(const Store& store, Findings& findings);

/// Checks the folder of the mutexes' files, for this process.
void CheckRuntimeFolder(Findings& findings);

/// Judges the processes that have the log open. @param path  the log on disk
void CheckProcesses(const std::string& path, const platform::LogUsers& users, Findings& findings);

}  // namespace tool
