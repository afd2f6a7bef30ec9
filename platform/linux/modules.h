// Loaded objects by address.
#pragma once

#include "layer.h"

namespace layer {

/// The loaded object that holds `address`, or null.
HINSTANCE ModuleOf(const void* address);

}  // namespace layer
