// Finds what is wrong in a settings store.
#pragma once

#include "settings/store.h"

#include <vector>

namespace tool {

/// The faults of a store in the order of their lines: dropped lines, wrong types, unknown names and keys, and values
/// that mean something else than they seem.
std::vector<StoreFault> CheckStore(const Store& store);

}  // namespace tool
