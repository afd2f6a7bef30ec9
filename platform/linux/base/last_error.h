// Reporting of failures: the last error of the thread, and the translation of `errno` values.
#pragma once

#include "system.h"

namespace layer {

/// Translates an `errno` value. @return the system error, ERROR_GEN_FAILURE if there is no counterpart
DWORD ErrorFromErrno(int error);

/// Sets the last error and returns `result`, so that a failure is one return statement.
template <class Result>
Result Fail(DWORD error, Result result)
{
    SetLastError(error);
    return result;
}

}  // namespace layer
