// The library as a loaded module of the process.
#pragma once

#include "system.h"

/// The handle of the library's own module while it is loaded, else null.
extern HINSTANCE ModuleInstance;
