// Reads the export format of the registry.
#pragma once

#include "settings/store.h"

#include <string_view>

namespace tool {

/// Reads the bytes of a store. What the library drops is among the faults. Only in a file that starts with REGEDIT4 and
/// names a code page, texts beyond ASCII can differ from those of the library: they are read as Latin-1.
Store ParseStore(std::string_view bytes);

}  // namespace tool
