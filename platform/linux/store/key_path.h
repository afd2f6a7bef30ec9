// Paths of keys.
#pragma once

#include "text/text.h"

namespace layer {

/// Separates the parts of a path.
constexpr WCHAR PathSeparator = '\\';

/// Reduces each run of separators to one and removes those at the end.
/// @param storage holds the result if it is not a part of `path`
/// @throws std::bad_alloc
TextView NormalizePath(TextView path, Text& storage);

/// Removes the first part of a path, with the separator after it. @return that part
TextView TakeFirstPart(TextView& path);

}  // namespace layer
