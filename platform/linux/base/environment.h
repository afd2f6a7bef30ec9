// Access to the environment variables that configure the layer.
#pragma once

namespace layer {

/// Reads an environment variable. In a set-user-id process every variable counts as unset, because the caller of such a
/// process must not choose which files it opens.
/// @return the value, or null
const char* Environment(const char* name);

}  // namespace layer
