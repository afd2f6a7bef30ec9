// The command line of the program: all verbs, the options that they share, and the run of one verb.
#pragma once

#include "cli/session.h"

#include <CLI/CLI.hpp>

#include <memory>
#include <string>
#include <vector>

namespace tool {

/// The command line with all verbs. It refers to `session`.
std::unique_ptr<CLI::App> MakeApplication(Session& session);

/// Runs the verb that the words name. Failures are reported on standard error.
Exit RunApplication(std::vector<std::string> words);

}  // namespace tool
