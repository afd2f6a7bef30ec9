// Loaded modules: the ELF objects of the process.
#pragma once

#include "system.h"

#include <cstddef>
#include <cstdint>
#include <link.h>
#include <string>
#include <vector>

namespace layer {

/// The addresses of a loaded module, from its ELF header to the end of its last segment.
struct ModuleExtent {
    std::uintptr_t Start;
    std::uintptr_t End;  // 0: the module has no segment in memory

    bool Contains(std::uintptr_t address) const { return address >= Start && address < End; }

    /// A module's handle is the address of its ELF header.
    HINSTANCE Handle() const { return reinterpret_cast<HINSTANCE>(Start); }
};

/// @param module as the dynamic linker lists it
ModuleExtent ExtentOf(const dl_phdr_info& module);

/// The loaded object that holds `address`, or null.
HINSTANCE ModuleOf(const void* address);

/// The path of a module's file (null: the program), in UTF-8; empty if no such module is loaded. A module without a
/// file, which the kernel puts into every process, gives its name.
/// @throws std::bad_alloc
std::string ModulePath(HINSTANCE module);

struct LoadedModule {
    HINSTANCE Handle;
    std::size_t Bytes;  // from its first page to its last
    std::string Path;
};

/// All modules that are loaded now, the program first.
/// @throws std::bad_alloc
std::vector<LoadedModule> LoadedModules();

}  // namespace layer
