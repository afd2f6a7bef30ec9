// A forked process that runs a function of a test, which may refer to the test's objects.
//
//     Child child([&] { return value == 1 ? 0 : 1; });
//     EXPECT_EQ(child.Wait(), 0);
#pragma once

#include "testkit/process.h"

#include <cstdlib>
#include <type_traits>

#include <unistd.h>

namespace testkit {

/// Ends with the function's result (0 for none), without destructors of the parent's objects. An exception ends it
/// with 98.
class Child : public Process {
public:
    template <class Work>
    explicit Child(Work work) : Child(Fork(work))
    {
    }

private:
    explicit Child(pid_t process) : Process(process, static_cast<std::uint32_t>(process)) {}

    template <class Work>
    static pid_t Fork(Work& work)
    {
        const pid_t process = fork();
        if (process < 0)
            std::abort();
        if (process != 0)
            return process;
        int result = 0;
        try {
            if constexpr (std::is_void_v<decltype(work())>)
                work();
            else
                result = work();
        } catch (...) {
            result = 98;
        }
        _exit(result);
    }
};

}  // namespace testkit
