// Deliberate damage to the files of a run, which the check has to find.
#pragma once

#include <filesystem>
#include <string>

namespace soak {

/// Does the damage of this name. Other names are faults of a writer or of a mode: then nothing happens.
void Damage(const std::string& fault, const std::filesystem::path& log, const std::filesystem::path& old);

}  // namespace soak
