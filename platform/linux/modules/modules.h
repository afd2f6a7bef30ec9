// The modules of the process, which are the ELF objects that the dynamic linker has loaded.
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
    std::uintptr_t End;  // 0 if the module has no segment in memory

    bool Contains(std::uintptr_t address) const { return address >= Start && address < End; }

    /// The handle of the module: the address of its ELF header, which its lowest segment contains.
    HINSTANCE Handle() const { return reinterpret_cast<HINSTANCE>(Start); }
};

/// @param module  an entry of the dynamic linker's list
ModuleExtent ExtentOf(const dl_phdr_info& module);

/// The module that contains an address, or null.
HINSTANCE ModuleOf(const void* address);

/// The path of a module's file, in UTF-8.
/// @param module  null for the program
/// @return empty if no such module is loaded; for the kernel's own module in each process, which has no file, its name
/// @throws std::bad_alloc
std::string ModulePath(HINSTANCE module);

/// One entry of a list of modules.
struct LoadedModule {
    HINSTANCE Handle;
    std::size_t Bytes;  // of all its pages
    std::string Path;   // as ModulePath returns it
};

/// All modules that are loaded at this moment, the program first.
/// @throws std::bad_alloc
std::vector<LoadedModule> LoadedModules();

}  // namespace layer
