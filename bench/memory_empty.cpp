// An empty program that prints its peak memory.
#include "peak_memory.h"

#include <cstdio>

int main()
{
    std::printf("%ld\n", bench::PeakMemory());
    return 0;
}
