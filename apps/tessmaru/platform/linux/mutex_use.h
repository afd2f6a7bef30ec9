// The files of mutexes that a process has open. docs/log-record.md describes their content.
#pragma once

#include "platform/processes.h"

#include <optional>
#include <string>

namespace tool::platform {

/// What a descriptor of a process is for, if it is the file of a mutex.
/// @param process    the process's folder in /proc
/// @param descriptor its number, as a name below `fd`
std::optional<MutexUse> ReadMutexUse(const std::string& process, const std::string& descriptor);

}  // namespace tool::platform
