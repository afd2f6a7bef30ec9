// Access to the settings store for the layer itself, without handles.
#pragma once

#include "system.h"
#include "text/text.h"

namespace layer {

/// Reads the text of a value up to its first zero unit. The type of the value is ignored.
/// @param result if not null, receives the error: ERROR_FILE_NOT_FOUND if the store, the key or the value does not
/// exist
/// @return false if the value cannot be read; `text` is then unchanged
/// @throws std::bad_alloc
bool ReadStoreText(HKEY hive, LPCWSTR key, LPCWSTR value, Text& text, LSTATUS* result = nullptr);

}  // namespace layer
