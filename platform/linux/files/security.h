// How security attributes turn into the access bits of a file.
#pragma once

#include "system.h"

namespace layer {

/// Access bits of a new file.
struct FileMode {
    unsigned Bits;
    bool Exact;  // whether they hold whatever the umask
};

/// The mode that attributes ask for. An access list decides for everyone; without a list everyone may do
/// everything. Null attributes, or none of a descriptor, leave it to the umask.
FileMode ModeOf(const SECURITY_ATTRIBUTES* attributes);

}  // namespace layer
