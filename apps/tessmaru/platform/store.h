// The settings store of the machine.
#pragma once

#include "settings/store.h"

#include <string>
#include <string_view>

namespace tool::platform {

/// The path of the store, or "registry".
std::string MachineStoreLocation();

/// @throws Failure with Exit::unreadable
Store ReadMachineStore();

/// Whether the store is a file, which `settings init` can write.
bool IsStoreFile();

/// Creates a file that everybody may read. @throws Failure with Exit::unreadable, also if there is one
void WriteNewFile(const std::string& path, std::string_view content);

}  // namespace tool::platform
