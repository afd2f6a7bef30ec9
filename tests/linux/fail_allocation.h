// Memory that runs out when a test says so. A program that links this has its own `operator new`.
#pragma once

namespace support {

/// From now on the n-th allocation of this thread fails, once; 0: none does.
void FailAllocation(int n);

/// Whether the one that was to fail has been reached.
bool AllocationFailed();

/// Blocks that this thread has made and not deleted.
int LiveBlocks();

}  // namespace support
