// A condition of a fuzz target: if it does not hold, the program aborts, which libFuzzer reports.
//
//     Require(units < room);
#pragma once

#include <cstdlib>

namespace testkit {

inline void Require(bool holds)
{
    if (!holds)
        std::abort();
}

}  // namespace testkit
