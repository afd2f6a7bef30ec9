// The verbs of `tessmaru settings`.
#pragma once

#include "cli/session.h"

#include <CLI/CLI.hpp>

namespace tool {

void AddSettingsCheck(CLI::App& settings, Session& session);
void AddSettingsDiff(CLI::App& settings, Session& session);
void AddSettingsGet(CLI::App& settings, Session& session);
void AddSettingsInit(CLI::App& settings, Session& session);
void AddSettingsList(CLI::App& settings, Session& session);

}  // namespace tool
