// The mode bits that security attributes give to a new file.
#pragma once

#include "system.h"

namespace layer {

/// The mode of a new file.
struct FileMode {
    unsigned Bits;
    bool Exact;  // whether the file gets all of them, regardless of the umask
};

/// The mode for security attributes. The access list decides what everyone may do, and an empty reference to a list
/// grants everything. Without attributes, without a descriptor or without a list the umask decides, as for any new
/// file.
/// @param attributes  may be null
FileMode ModeOf(const SECURITY_ATTRIBUTES* attributes);

}  // namespace layer
