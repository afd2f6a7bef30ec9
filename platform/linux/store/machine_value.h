// Properties of the machine that the settings store holds and that a process reads once.
#pragma once

#include "system.h"

#include <span>

namespace layer {

/// The result of a lookup. `failed`: the value could not be read this time, for lack of memory for instance; the next
/// attempt may succeed.
enum class Lookup { found, missing, failed };

/// Reads a text of the store into `text`, with a terminator; one that does not fit counts as missing.
/// Leaves the last error alone.
Lookup ReadMachineText(HKEY hive, LPCWSTR key, LPCWSTR value, std::span<WCHAR> text);

}  // namespace layer
