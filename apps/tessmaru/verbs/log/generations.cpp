// The files that rollovers and rotations of a log have left, in the order in which they were written.
#include "verbs/log/generations.h"

#include "text/paths.h"
#include "verbs/log/log_options.h"

#include <algorithm>
#include <charconv>
#include <filesystem>
#include <optional>
#include <tuple>

namespace tool {
namespace {

namespace fs = std::filesystem;

struct FormerFile {
    std::string Path;
    fs::file_time_type Written;
    unsigned Number;
};

/// The number of the rotated file App.log.<number>; 0 for the file of a rollover.
std::optional<unsigned> NumberOf(const std::string& name, const std::string& log, const std::string& previous)
{
    if (name == previous)
        return 0;
    if (!name.starts_with(log + '.'))
        return std::nullopt;
    unsigned number = 0;
    const char* const begin = name.data() + log.size() + 1;
    const char* const end = name.data() + name.size();
    const auto [rest, error] = std::from_chars(begin, end, number);
    return error == std::errc() && rest == end && number > 0 ? std::optional(number) : std::nullopt;
}

}  // namespace

std::vector<std::string> FormerFiles(const std::string& log)
{
    const fs::path folder = FolderOf(log);
    const std::string name = NameOfFile(log);
    const std::string previous = PreviousFileOf(name);
    std::vector<FormerFile> found;
    std::error_code failure;
    for (fs::directory_iterator each(folder, failure), end; !failure && each != end; each.increment(failure)) {
        const auto number = NumberOf(Utf8Of(each->path().filename()), name, previous);
        // A file that is removed meanwhile has no time, and is left out.
        std::error_code gone;
        const auto written = fs::last_write_time(each->path(), gone);
        if (number && !gone)
            found.push_back({Utf8Of(each->path()), written, *number});
    }
    // Two rotations can follow each other faster than the clock of the file system.
    std::sort(found.begin(), found.end(), [](const FormerFile& one, const FormerFile& other) {
        return std::tuple(one.Written, other.Number) < std::tuple(other.Written, one.Number);
    });
    std::vector<std::string> paths;
    for (FormerFile& each : found)
        paths.push_back(std::move(each.Path));
    return paths;
}

}  // namespace tool
