// Modules that tests name: the library's own, and one without resources.
#pragma once

#include "tessmaru/platform.h"

#include <filesystem>

namespace testkit {

/// The file of the shared library that was built.
std::filesystem::path LibraryFile();

/// The module that holds the library in a test: on Linux the test program itself.
HMODULE LibraryModule();

/// A module of the system, without the string table and the messages that tests use.
HMODULE SystemModule();

}  // namespace testkit
