// Values of the machine's settings, read through the library.
#pragma once

#include <cstdint>
#include <string>

namespace tool {

/// A text below HKEY_LOCAL_MACHINE, in UTF-8; empty if it is missing.
std::string MachineValue(const std::string& key, const std::string& name);

/// A number below HKEY_LOCAL_MACHINE; 0 if it is missing.
std::uint32_t MachineNumber(const std::string& key, const std::string& name);

/// The path of the log as the settings give it; empty if they do not.
std::string LogPathSetting();

/// The form of the machine's dates, such as dd/MM/yyyy; empty if the settings do not give it.
std::string ShortDatePattern();

}  // namespace tool
