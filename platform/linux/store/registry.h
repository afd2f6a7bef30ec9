// The settings store, for the layer's own needs.
#pragma once

#include "system.h"
#include "text/text.h"

namespace layer {

/// The text of a value up to its first zero unit; the value's type is not looked at. False, with `text` unchanged,
/// if it cannot be read; `result` tells why: ERROR_FILE_NOT_FOUND for a value that is not there.
/// @throws std::bad_alloc
bool ReadStoreText(HKEY hive, LPCWSTR key, LPCWSTR value, Text& text, LSTATUS* result = nullptr);

}  // namespace layer
