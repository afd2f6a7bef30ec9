// Compression of a file, by zlib.
#pragma once

#include <string>

namespace tool {

/// Replaces a file by its compressed form, whose name has `.gz` appended. It has the same permissions.
/// @throws Failure with Exit::unreadable; the file is kept then
void Compress(const std::string& path);

}  // namespace tool
