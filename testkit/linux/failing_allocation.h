// Memory that runs out where a test says so. For tests with GoogleTest.
//
//     EXPECT_GT(FailEachAllocation([] { Call(); }), 0);
//
// The target testkit_failing_allocation gives a program its own operator new, and redirects the program's calls of
// malloc and the like, the library's included.
#pragma once

#include <gtest/gtest.h>

namespace testkit {

/// Makes the n-th allocation of this thread from now on fail, once. 0: none fails any more.
void FailAllocation(int n);

/// Whether that allocation was reached.
bool AllocationFailed();

/// The blocks that this thread has allocated and not freed.
int LiveBlocks();

/// Calls `run` with its first allocation failing, then with its second, and so on, until none fails. The test fails if
/// a call leaves a block allocated.
/// @return the number of allocations that failed.
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

}  // namespace testkit
