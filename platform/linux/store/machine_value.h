// Properties of the machine, such as its code page, that are kept in the settings store and read once per process.
#pragma once

#include "system.h"

#include <span>

namespace layer {

/// The result of a lookup. `unavailable` means that the value could not be read this time, for lack of memory for
/// instance, and that the next attempt may succeed.
enum class LookupResult { found, missing, unavailable };

/// Reads a text value of the store. Preserves the last error.
/// @param text receives the value and fills up with zeros. A value that does not fit with its terminator counts as
/// missing.
LookupResult ReadMachineText(HKEY hive, LPCWSTR key, LPCWSTR value, std::span<WCHAR> text);

}  // namespace layer
