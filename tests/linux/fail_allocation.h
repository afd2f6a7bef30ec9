// Memory that runs out when a test says so. A program that links this has an `operator new` of its own, and its calls
// of malloc and the like, the library's among them, pass through here.
#pragma once

#include <gtest/gtest.h>

namespace support {

/// From now on the n-th allocation of this thread fails, once; 0: none does any more.
void FailAllocation(int n);

/// Whether the one that was to fail has been reached.
bool AllocationFailed();

/// Blocks that this thread has made and not deleted.
int LiveBlocks();

/// Calls `run` once with its first allocation failing, then with its second, and so on, until none fails: each time it
/// has to leave no block behind.
/// @return how many times an allocation failed.
template <class Run>
int FailEachAllocation(Run run)
{
    for (int n = 1;; ++n) {
        const int before = LiveBlocks();
        FailAllocation(n);
        run();
        FailAllocation(0);
        const bool failed = AllocationFailed();
        EXPECT_EQ(LiveBlocks(), before) << "where allocation " << n << (failed ? " failed" : " would have failed");
        if (!failed)
            return n - 1;
    }
}

}  // namespace support
