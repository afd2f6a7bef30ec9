// The mutex of the log while its owner writes records.
#pragma once

#include "log/log_file.h"
#include "primitives/mutex_hold.h"

namespace logging {

/// Waits for the mutex like MutexHold, and passes on from owner to owner whether the end of the file is to be checked:
/// an abandoned mutex says so.
class WriterHold : public MutexHold {
public:
    explicit WriterHold(HANDLE mutex) : MutexHold(mutex, RecordWaitMilliseconds), Mutex(mutex)
    {
        if (isAbandoned())
            appender.DistrustEnd();
    }
    ~WriterHold()
    {
        if (isObtained() && appender.IsEndUnsure())
            platform::AbandonAtRelease(Mutex);
    }

private:
    HANDLE Mutex;
};

}  // namespace logging
