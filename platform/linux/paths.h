// Paths of the platform's form on this file system.
#pragma once

#include "layer.h"

#include <string>

namespace layer {

/// The path on disk, in UTF-8, for a path of the platform: backslashes and slashes separate, and a drive letter
/// stands for the folder that the settings store names for it.
/// @return 0, or the system error
/// @throws std::bad_alloc
DWORD TranslatePath(LPCWSTR path, std::string& translated);

}  // namespace layer
