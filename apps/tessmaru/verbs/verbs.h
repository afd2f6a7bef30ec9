// The verbs of the program. Each adds itself to the command line: its options, its help and what it does.
#pragma once

#include "cli/session.h"

#include <CLI/CLI.hpp>

namespace tool {

void AddCompletion(CLI::App& program, Session& session);
void AddDoctor(CLI::App& program, Session& session);
void AddError(CLI::App& program, Session& session);
void AddLog(CLI::App& program, Session& session);
void AddManual(CLI::App& program, Session& session);
void AddMask(CLI::App& program, Session& session);
void AddVersion(CLI::App& program, Session& session);
void AddSettings(CLI::App& program, Session& session);

}  // namespace tool
