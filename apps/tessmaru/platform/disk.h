// Files and folders on disk, as a check sees them. Nothing here changes or opens a file.
#pragma once

#include "platform/file.h"

#include <cstdint>
#include <optional>
#include <string>

namespace tool::platform {

enum class FileKind { missing, file, folder, link, other };

struct PathState {
    FileKind Kind = FileKind::missing;
    std::string Error;  // why the state is not known
    std::uint64_t Links = 0;
    bool CanWrite = false;     // this account may write to the file, or make files in the folder
    bool IsOpenToAll = false;  // every account may replace the files of the folder
    FileIdentity Identity;
};

/// The state of a path. A link is not followed.
PathState StateOf(const std::string& path);

/// The bytes that this account may still write to the disk of a folder; nothing if they are not known.
std::optional<std::uint64_t> FreeSpace(const std::string& folder);

/// The folder of a path on disk.
std::string FolderOf(const std::string& path);

/// Why a path of the settings cannot be that of a log for every process; empty if it can.
std::string PathFault(const std::string& path);

/// The folder of the mutexes' files for this process; empty where there is none.
std::string RuntimeFolder();

/// A word of a command line of this platform.
std::string QuotedWord(const std::string& word);

}  // namespace tool::platform
