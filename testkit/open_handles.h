// The handles that this process has open: a test compares their number before and after.
#pragma once

namespace testkit {

/// The number of open handles; on Linux of descriptors.
int OpenHandles();

}  // namespace testkit
