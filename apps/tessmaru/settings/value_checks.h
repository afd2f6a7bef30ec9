// Finds what is wrong with the value of one setting.
#pragma once

#include "settings/catalogue.h"

#include <string>

namespace tool {

/// @return empty if it is sound
std::string FaultOf(const Setting& setting, const StoreValue& value);

}  // namespace tool
