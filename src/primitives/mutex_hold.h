// A named mutex that is held until the end of a scope.
#pragma once

#include "system.h"

/// Waits for a mutex and releases it at the end of the scope if the wait obtained it.
class MutexHold {
public:
    MutexHold(HANDLE mutex, DWORD milliseconds) : MutexHold(mutex, WaitResult{WaitForSingleObject(mutex, milliseconds)})
    {
    }

    /// Takes over a mutex that the calling thread already owns.
    static MutexHold OfOwner(HANDLE mutex) { return {mutex, WaitResult{WAIT_OBJECT_0}}; }

    MutexHold(const MutexHold&) = delete;
    MutexHold& operator=(const MutexHold&) = delete;
    ~MutexHold()
    {
        if (isObtained())
            ReleaseMutex(Mutex);
    }

    /// What WaitForSingleObject returned; after WAIT_FAILED the reason is in GetLastError.
    DWORD result() const { return Result.Value; }

    bool isObtained() const { return result() == WAIT_OBJECT_0 || isAbandoned(); }

    /// Obtained from an owner that ended without releasing it, so what the mutex guards may be incomplete.
    bool isAbandoned() const { return result() == WAIT_ABANDONED; }

private:
    struct WaitResult {
        DWORD Value;
    };

    MutexHold(HANDLE mutex, WaitResult result) : Mutex(mutex), Result(result) {}

    HANDLE Mutex;
    WaitResult Result;
};
