// The mutex of the log while its owner opens the file or writes records.
#pragma once

#include "log/log_file.h"
#include "primitives/mutex_hold.h"

namespace logging {

/// Holds the mutex of the log until the end of the scope, and passes on from owner to owner whether the end of the file
/// is to be checked: an abandoned mutex says so.
class WriterHold {
public:
    /// Waits as long as a record does.
    explicit WriterHold(HANDLE mutex) : Mutex(mutex), Hold(mutex, RecordWaitMilliseconds) { LearnOfEnd(); }

    /// For the opening of the log: takes over the mutex if the calling thread owns it already, else waits without
    /// limit.
    WriterHold(HANDLE mutex, bool isOwned)
        : Mutex(mutex), Hold(isOwned ? MutexHold::OfOwner(mutex) : MutexHold(mutex, INFINITE))
    {
        LearnOfEnd();
    }

    WriterHold(const WriterHold&) = delete;
    WriterHold& operator=(const WriterHold&) = delete;
    ~WriterHold()
    {
        if (isObtained() && appender.IsEndUnsure())
            platform::AbandonAtRelease(Mutex);
    }

    DWORD result() const { return Hold.result(); }
    bool isObtained() const { return Hold.isObtained(); }

private:
    void LearnOfEnd()
    {
        if (Hold.isAbandoned())
            appender.DistrustEnd();
    }

    HANDLE Mutex;
    MutexHold Hold;
};

}  // namespace logging
