// The place up to which a log was read, kept in a file.
#pragma once

#include "platform/file.h"

#include <cstdint>
#include <optional>
#include <string>

namespace tool {

/// A place in one of a log's files, which may have been renamed since.
struct LogPlace {
    platform::FileIdentity Identity;
    std::uint64_t Offset = 0;
    std::uint64_t Head = 0;  // a hash of the first bytes, because the number of a removed file is used again

    bool operator==(const LogPlace&) const = default;
};

/// The place `offset` of a file.
LogPlace PlaceIn(platform::InputFile& file, std::uint64_t offset);

/// Whether `file` is the file of `place`. The number of its volume may differ, since a restart can change it.
bool IsFileOf(platform::InputFile& file, const LogPlace& place);

class Cursor {
public:
    explicit Cursor(std::string path) : Path(std::move(path)) {}

    /// The saved place; nothing if none was saved or the file is damaged.
    std::optional<LogPlace> Load() const;

    /// Replaces the file in one step, so that a kill leaves the old place or the new one.
    /// @throws Failure with Exit::unreadable
    void Save(const LogPlace& place);

private:
    std::string Path;
    std::optional<LogPlace> Saved;
};

}  // namespace tool
