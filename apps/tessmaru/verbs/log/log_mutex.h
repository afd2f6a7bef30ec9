// The lock that orders the writers of a log.
#pragma once

#include "cli/session.h"
#include "tessmaru/platform.h"

#include <string>

namespace tool {

/// The path of the log as its writers spell it, from which they make the name of the mutex: that of the settings if it
/// leads to `file`, otherwise the absolute path of the file.
std::string SpellingOf(const std::string& file);

/// A named mutex that any account may use, held by this thread.
class MutexLock {
public:
    /// @throws Failure with Exit::unreadable if the mutex cannot be opened, or is not free for a minute
    explicit MutexLock(const std::string& name);
    MutexLock(const MutexLock&) = delete;
    MutexLock& operator=(const MutexLock&) = delete;
    ~MutexLock();

private:
    HANDLE Mutex;
};

/// The name of the mutex of a log.
std::string MutexNameOf(const std::string& spelling);

}  // namespace tool
