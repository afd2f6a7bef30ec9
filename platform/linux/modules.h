// Loaded objects by address.
#pragma once

#include "layer.h"

#include <vector>

namespace layer {

/// The loaded object that holds `address`, or null.
HINSTANCE ModuleOf(const void* address);

/// The path of a module's file (null: the program), in UTF-8; empty if no such module is loaded. A module that has no
/// file, which the kernel puts into every process, gives its name.
/// @throws std::bad_alloc
std::string ModulePath(HINSTANCE module);

struct LoadedModule {
    HINSTANCE Handle;
    std::size_t Bytes;  // from its first page to its last
    std::string Path;
};

/// All that are loaded now, the program first.
/// @throws std::bad_alloc
std::vector<LoadedModule> LoadedModules();

}  // namespace layer
