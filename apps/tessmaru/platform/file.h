// Files that other processes write, move and remove while they are read.
#pragma once

#include "records/tail.h"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

namespace tool::platform {

/// What makes two open files the same file.
struct FileIdentity {
    std::uint64_t Volume = 0;
    std::uint64_t File = 0;

    bool operator==(const FileIdentity&) const = default;
};

/// A file that is open for reading. It keeps no other process from moving or removing it.
class InputFile : public records::RandomSource {
public:
    /// @throws Failure with Exit::unreadable
    static std::unique_ptr<InputFile> Open(const std::string& path);

    /// The same, but null if there is no file at the path.
    static std::unique_ptr<InputFile> OpenIfThere(const std::string& path);

    virtual FileIdentity Identity() const = 0;
};

/// Whether `path` is the file that is open.
bool IsSameFile(const InputFile& file, const std::string& path);

/// Standard input, up to `bytes` bytes. @return how many; 0 at its end
std::size_t ReadInput(void* buffer, std::size_t bytes);

/// The path on disk of a path from the settings, which is written as the suite's own platform writes paths.
std::string PathOnDisk(const std::string& path);

}  // namespace tool::platform
