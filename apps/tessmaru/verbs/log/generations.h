// The files that rollovers and rotations of a log have left.
#pragma once

#include <string>
#include <vector>

namespace tool {

/// The former files of a log, the oldest first: "Previous App.log", and App.log.1, App.log.2 and so on.
std::vector<std::string> FormerFiles(const std::string& log);

}  // namespace tool
