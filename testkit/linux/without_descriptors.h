// A process that can open no file for a while.
//
//     const auto result = WithoutDescriptors([] { return OpenIt(); });
#pragma once

#include <cstdlib>
#include <sys/resource.h>

namespace testkit {

/// The result of `work`. Every attempt to open a file fails meanwhile.
template <class Work>
auto WithoutDescriptors(Work work)
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

}  // namespace testkit
