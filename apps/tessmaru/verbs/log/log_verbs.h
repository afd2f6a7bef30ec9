// The verbs below `tessmaru log`.
#pragma once

#include "cli/session.h"

#include <CLI/CLI.hpp>

namespace tool {

/// `log show`, which `log` alone means too.
void AddLogShow(CLI::App& log, Session& session);
void AddLogConvert(CLI::App& log, Session& session);
void AddLogFollow(CLI::App& log, Session& session);
void AddLogRotate(CLI::App& log, Session& session);
void AddLogSummary(CLI::App& log, Session& session);

}  // namespace tool
