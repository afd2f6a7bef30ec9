// The modules of a process.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace tool::platform {

struct Module {
    std::string Path;
    bool IsReplaced = false;  // the process still uses a file that was removed from this path
};

/// The files that a process has mapped, each once, in the order of their paths.
/// @throws Failure with Exit::unreadable if there is no such process, or another account owns it
std::vector<Module> ModulesOf(std::uint32_t process);

}  // namespace tool::platform
