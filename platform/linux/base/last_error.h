// Failure results: the thread's last error, and the translation of `errno` values.
#pragma once

#include "system.h"

namespace layer {

/// The system error that corresponds to an `errno` value; ERROR_GEN_FAILURE for one that has no counterpart.
DWORD ErrorFromErrno(int error);

/// Sets the last error and returns `result`, so that a failure is one return statement.
template <class Result>
Result Fail(DWORD error, Result result)
{
    SetLastError(error);
    return result;
}

}  // namespace layer
