// Failures of system calls on Windows as exceptions.
#pragma once

#include <string>
#include <system_error>

#include <windows.h>

namespace testkit {

/// Throws the failure of the last system call. @param what the object of the call
[[noreturn]] inline void ThrowLastFailure(const std::string& what)
{
    throw std::system_error(static_cast<int>(GetLastError()), std::system_category(), what);
}

}  // namespace testkit
