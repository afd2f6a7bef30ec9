// A log that is read while it is written, over all changes of its file.
#pragma once

#include "records/record_reader.h"
#include "verbs/log/cursor.h"
#include "verbs/log/log_source.h"

#include <chrono>
#include <deque>
#include <functional>
#include <memory>
#include <optional>
#include <string>

namespace tool {

/// The files of a log, one after the other. A file that was moved, removed or replaced is read to its end first: it
/// stays open until it has been quiet for longer than the writers take to notice the change.
class FollowedLog {
public:
    /// @param say gets a line for a person about what a reader of the records cannot see
    FollowedLog(std::string path, std::function<void(const std::string&)> say);

    /// Starts at an offset of the file at the path. Without a file, it starts with the one that comes.
    void StartAt(const std::function<std::uint64_t(platform::InputFile&)>& offset);

    /// Starts at a place that was saved, in whichever file it is now. If that file is gone, it starts with the oldest
    /// one that is left: a record may come again, but none is left out.
    void Resume(const LogPlace& place);

    /// Notices what has changed.
    void Refresh();

    /// The next entry that is complete; nothing if there is none before the next call of Refresh.
    std::optional<records::Entry> Next();

    /// The place after the last entry. As long as there is no file, it is in none, so that Resume reads all files.
    LogPlace Place();

    /// How long to wait for a change before the next call of Refresh.
    std::chrono::milliseconds Pause() const;

private:
    using Clock = std::chrono::steady_clock;

    struct File {
        std::unique_ptr<platform::InputFile> Input;
        std::uint64_t Start = 0;
        std::uint64_t Size = 0;   // when it was last seen
        Clock::time_point Quiet;  // since when it has had this size, and a successor if there is one
    };

    /// The reader of the first file, which needs much memory.
    struct Reading {
        explicit Reading(File& file) : Part(*file.Input, file.Start), Reader(Part, file.Start) {}

        FilePart Part;
        records::RecordReader Reader;
    };

    void Add(std::unique_ptr<platform::InputFile> file, std::uint64_t start = 0);
    std::deque<std::unique_ptr<platform::InputFile>> OpenAll() const;
    void FindSuccessors();
    bool IsKnown(const std::string& path) const;
    void RefreshFirst();
    void Rewind(std::uint64_t size);

    const std::string Path;
    const std::function<void(const std::string&)> Say;
    std::deque<File> Files;
    std::unique_ptr<Reading> First;
    records::AtEnd Last = records::AtEnd::complete;
    bool IsWaiting = false;  // for the end of an entry that may be complete
};

}  // namespace tool
