// The library as a loaded module.
#pragma once

#include "system.h"

/// The handle of the library's own module from its loading to its unloading, else null.
extern HINSTANCE ModuleInstance;
