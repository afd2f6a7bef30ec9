// Follows a log. The first of its files is read; the others wait until that one is at its end.
#include "verbs/log/followed_log.h"

#include "cli/session.h"
#include "verbs/log/generations.h"

#include <algorithm>
#include <thread>
#include <vector>

namespace tool {
namespace {

using namespace std::chrono_literals;

// A text with line ends inside can be seen in parts while it is appended.
constexpr auto SettleTime = 20ms;
// A writer notices a move with its first record of the next second.
constexpr auto LeaveTime = 2000ms;
// The safety net where the folder gives no notice of changes.
constexpr auto PollTime = 1000ms;

}  // namespace

FollowedLog::FollowedLog(std::string path, std::function<void(const std::string&)> say)
    : Path(std::move(path)), Say(std::move(say))
{
}

void FollowedLog::StartAt(const std::function<std::uint64_t(platform::InputFile&)>& offset)
{
    auto file = platform::InputFile::OpenIfThere(Path);
    if (file == nullptr) {
        Say("waiting for " + Path);
        return;
    }
    const std::uint64_t start = offset(*file);
    Add(std::move(file), start);
}

std::deque<std::unique_ptr<platform::InputFile>> FollowedLog::OpenAll() const
{
    std::deque<std::unique_ptr<platform::InputFile>> files;
    // A rotation may rename files while they are listed, so that one is missed: it is over when nothing has changed.
    constexpr int attempts = 100;
    for (int i = 0; i < attempts; ++i) {
        std::vector<std::string> paths = FormerFiles(Path);
        paths.push_back(Path);
        files.clear();
        bool isStable = true;
        for (const std::string& each : paths) {
            if (auto file = platform::InputFile::OpenIfThere(each))
                files.push_back(std::move(file));
            else
                isStable = isStable && each == Path;
        }
        auto file = files.begin();
        for (const std::string& each : paths)
            file += file != files.end() && platform::IsSameFile(**file, each) ? 1 : 0;
        paths.pop_back();
        if (isStable && file == files.end() && paths == FormerFiles(Path))
            break;
        std::this_thread::sleep_for(1ms);
    }
    return files;
}

void FollowedLog::Resume(const LogPlace& place)
{
    auto files = OpenAll();
    const auto found =
        std::find_if(files.begin(), files.end(), [&](const auto& each) { return IsFileOf(*each, place); });
    const bool isFound = found != files.end();
    if (!isFound)
        Say("the file of the cursor is gone; all files that are left are read");
    else
        files.erase(files.begin(), found);
    for (auto& each : files)
        Add(std::move(each), isFound && Files.empty() ? place.Offset : 0);
}

void FollowedLog::Add(std::unique_ptr<platform::InputFile> file, std::uint64_t start)
{
    const auto now = Clock::now();
    if (!Files.empty())
        Files.back().Quiet = now;
    const std::uint64_t size = file->Size();
    Files.push_back({std::move(file), start, size, now});
}

bool FollowedLog::IsKnown(const std::string& path) const
{
    return std::any_of(Files.begin(), Files.end(),
                       [&](const File& each) { return platform::IsSameFile(*each.Input, path); });
}

/// Adds the file at the path if it is another one, and those that came and went since the last look.
void FollowedLog::FindSuccessors()
{
    if (IsKnown(Path))
        return;
    if (platform::InputFile::OpenIfThere(Path) == nullptr)
        return;
    auto files = OpenAll();
    const auto isRead = [&](const auto& each) {
        return !Files.empty() && each->Identity() == Files.back().Input->Identity();
    };
    const auto last = std::find_if(files.begin(), files.end(), isRead);
    // If the file that is read was removed or moved elsewhere, only the newest one is its successor.
    auto next = last == files.end() ? files.end() - (files.empty() ? 0 : 1) : last + 1;
    for (; next != files.end(); ++next)
        Add(std::move(*next));
}

/// A smaller file was truncated, or the writer has taken back a record that it could not write whole.
void FollowedLog::Rewind(std::uint64_t size)
{
    records::RecordReader& reader = First->Reader;
    std::uint64_t offset = reader.offset();
    if (size < offset) {
        Say(Path + " was truncated; it is read from its start");
        offset = 0;
    }
    // What was read after the last entry is read again: it may have been taken back and replaced.
    reader.Restart(offset);
    First->Part.Seek(offset);
}

void FollowedLog::RefreshFirst()
{
    File& file = Files.front();
    if (First == nullptr)
        First = std::make_unique<Reading>(file);
    const auto now = Clock::now();
    const std::uint64_t size = file.Input->Size();
    if (size != file.Size)
        file.Quiet = now;
    file.Size = size;
    Rewind(size);
    const auto quiet = now - file.Quiet;
    if (Files.size() > 1 && quiet >= LeaveTime)
        Last = records::AtEnd::all;
    else
        Last = quiet >= SettleTime ? records::AtEnd::endedLines : records::AtEnd::complete;
}

void FollowedLog::Refresh()
{
    FindSuccessors();
    if (!Files.empty())
        RefreshFirst();
}

std::optional<records::Entry> FollowedLog::Next()
{
    while (First != nullptr) {
        if (auto entry = First->Reader.Next(Last))
            return entry;
        IsWaiting = Last == records::AtEnd::complete && First->Reader.HasRest();
        if (Last != records::AtEnd::all)
            return std::nullopt;
        First.reset();
        Files.pop_front();
        RefreshFirst();
    }
    return std::nullopt;
}

LogPlace FollowedLog::Place()
{
    if (Files.empty())
        return {};
    const std::uint64_t offset = First == nullptr ? Files.front().Start : First->Reader.offset();
    return PlaceIn(*Files.front().Input, offset);
}

std::chrono::milliseconds FollowedLog::Pause() const
{
    if (IsWaiting)
        return SettleTime;
    return Files.size() > 1 ? LeaveTime / 10 : PollTime;
}

}  // namespace tool
