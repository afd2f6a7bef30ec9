// Debug output on Linux.
#include "testkit/debug_output.h"

#include <cstdio>
#include <cstdlib>

namespace testkit {

void SendDebugOutputTo(const std::filesystem::path& path)
{
    setenv("VELTRIX_DEBUG_OUTPUT", "1", 1);
    if (std::freopen(path.c_str(), "a", stderr) == nullptr)
        std::abort();
}

}  // namespace testkit
