// The processes of this machine that use a log, and the files of its mutex.
#pragma once

#include "platform/file.h"

#include <cstdint>
#include <string>
#include <vector>

namespace tool::platform {

/// The file of a mutex that a process has open.
struct MutexUse {
    FileIdentity File;
    std::string Folder;  // as the process names it
    bool IsRemoved = false;
    std::string Name;                    // of the mutex, in UTF-8
    std::uint32_t Word = 0;              // the owner's number, and whether a process sleeps
    std::vector<std::uint32_t> Numbers;  // those of this process
    unsigned Sleepers = 0;               // threads of this process that sleep on the word

    static constexpr std::uint32_t OwnerBits = 0x3FFFFFFF;
    static constexpr std::uint32_t WaitingBit = 0x80000000;
};

struct LogUser {
    int Process = 0;
    std::string Name;
    bool Writes = false;
    bool IsStopped = false;
    bool HasRemovedFile = false;  // it has a file open that had the path of the log and was removed
    std::string Zone;             // the time zone of the process
    std::vector<MutexUse> Mutexes;
};

struct LogUsers {
    std::vector<LogUser> Found;
    bool IsComplete = true;  // false: there are processes that this account must not see
};

/// The processes that have the log open, or a removed file that had its path. Empty where the platform gives no such
/// list. @param path  the log on disk
LogUsers FindLogUsers(const std::string& path);

/// Whether FindLogUsers can find any.
bool CanFindLogUsers();

}  // namespace tool::platform
