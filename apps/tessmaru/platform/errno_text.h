// The machine's own text for an error of Linux.
#pragma once

#include <string>

namespace tool::platform {

/// Empty where the machine has no such errors, or no text for this one.
std::string ErrnoText(int error);

}  // namespace tool::platform
