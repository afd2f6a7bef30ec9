// What writers need that have no pipe to the process that started them, because they close descriptors.
#pragma once

#include "soak/writer.h"

#include <filesystem>

namespace soak {

/// Lets the kernel kill this process when the one that started it dies.
void DieWithParent();

/// Lets writers end that wait in WaitForEndFile.
void MakeEndFile(const std::filesystem::path& folder);
void WaitForEndFile(const std::filesystem::path& folder);

/// The descriptor of the log in this process. @throws std::runtime_error
int DescriptorOf(const std::filesystem::path& file);

}  // namespace soak
