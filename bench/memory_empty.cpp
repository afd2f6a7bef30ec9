// An empty program, which tells its peak memory.
#include "peak_memory.h"

#include <cstdio>

int main()
{
    std::printf("%ld\n", bench::PeakMemory());
    return 0;
}
