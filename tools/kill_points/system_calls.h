// The names of system calls, and the errors with which each can plausibly fail.
#pragma once

#include "traced_process.h"

#include <string>
#include <vector>

namespace kill_points {

/// The failures to try at a call. Empty for a call that cannot fail.
std::vector<int> FailuresOf(const SystemCall& call);

/// Whether the call can be cut: a write of more than one byte.
bool IsWrite(const SystemCall& call);

/// Whether the call reads the status of an open file.
bool IsStatusOfDescriptor(const SystemCall& call);

std::string NameOf(const SystemCall& call);

}  // namespace kill_points
