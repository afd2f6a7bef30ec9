// A process that can open no file for a while.
#pragma once

#include <cstdlib>
#include <sys/resource.h>

namespace support {

/// The result of `work`, during which every attempt to open a file fails.
template <class Work>
auto WithoutFiles(Work work)
{
    rlimit limit{};
    if (getrlimit(RLIMIT_NOFILE, &limit) != 0)
        std::abort();
    const rlimit none{0, limit.rlim_max};
    if (setrlimit(RLIMIT_NOFILE, &none) != 0)
        std::abort();
    auto result = work();
    if (setrlimit(RLIMIT_NOFILE, &limit) != 0)
        std::abort();
    return result;
}

}  // namespace support
