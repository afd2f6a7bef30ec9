// Environment variables of the layer.
#pragma once

namespace layer {

/// The value of an environment variable, or null. A set-user-id process gets null for every variable: its caller
/// must not choose which files it opens.
const char* Environment(const char* name);

}  // namespace layer
