// `tessmaru log rotate`: takes the log's file aside. Of the verbs that read the log, it is the only one that changes
// something.
#include "cli/command.h"
#include "text/paths.h"
#include "verbs/log/compressed_file.h"
#include "verbs/log/log_mutex.h"
#include "verbs/log/log_options.h"
#include "verbs/log/log_verbs.h"

#include <fmt/format.h>

#include <chrono>
#include <filesystem>
#include <memory>
#include <optional>
#include <thread>

namespace tool {
namespace {

namespace fs = std::filesystem;

struct RotateOptions : LogOptions {
    unsigned Keep = 0;
    bool Compress = false;
};

std::string Rotated(const std::string& log, unsigned number)
{
    return fmt::format("{}.{}", log, number);
}

void Rename(const std::string& from, const std::string& to)
{
    std::error_code failure;
    fs::rename(PathOf(from), PathOf(to), failure);
    if (failure)
        throw Failure(Exit::unreadable, fmt::format("cannot rename {} to {}: {}", from, to, failure.message()));
}

/// The path of the rotated file with this number, compressed or not, if there is one.
std::optional<std::string> FindRotated(const std::string& log, unsigned number)
{
    for (const char* const ending : {"", ".gz"}) {
        const std::string path = Rotated(log, number) + ending;
        if (fs::exists(fs::symlink_status(PathOf(path))))
            return path;
    }
    return std::nullopt;
}

/// Frees the number 1. A number that is free already ends the shift, so that no file is removed without need.
void Shift(const std::string& log, unsigned keep)
{
    unsigned end = 1;
    while (end <= keep && FindRotated(log, end))
        ++end;
    if (end > keep) {
        fs::remove(PathOf(*FindRotated(log, keep)));
        end = keep;
    }
    for (unsigned number = end; number-- > 1;) {
        const std::string from = *FindRotated(log, number);
        Rename(from, Rotated(log, number + 1) + (from.ends_with(".gz") ? ".gz" : ""));
    }
}

/// Removes what an earlier rotation with a larger number kept.
void RemoveBeyond(const std::string& log, unsigned keep)
{
    for (unsigned number = keep + 1; const auto path = FindRotated(log, number); ++number)
        fs::remove(PathOf(*path));
}

/// Returns when no writer appends to a moved file any more. A writer compares its file with the path at its first
/// record of a second, and does so while it has the mutex.
void WaitForWriters(const std::string& mutex)
{
    using namespace std::chrono_literals;
    std::this_thread::sleep_for(1100ms);
    const MutexLock lock(mutex);
}

/// The newest file stays as it is: a reader that was stopped goes on in it.
void CompressAllButNewest(const std::string& log, const std::string& mutex)
{
    bool hasWaited = false;
    for (unsigned number = 2; const auto path = FindRotated(log, number); ++number) {
        if (path->ends_with(".gz"))
            continue;
        if (!hasWaited)
            WaitForWriters(mutex);
        hasWaited = true;
        Compress(*path);
    }
}

Exit Rotate(Session& session, const RotateOptions& options)
{
    const std::string log = LogFileOf(options);
    if (log == "-")
        throw Failure(Exit::usage, "standard input cannot be rotated");
    const std::string mutex = MutexNameOf(SpellingOf(log));
    // A second rotation must not shift the file that is being compressed.
    const MutexLock rotation(mutex + ".Rotation");
    {
        const MutexLock lock(mutex);
        std::error_code failure;
        const fs::path path = PathOf(log);
        if (!fs::is_regular_file(fs::symlink_status(path, failure)) || fs::file_size(path, failure) == 0) {
            session.Say(log + " is no file with records; nothing is rotated");
            return Exit::nothing;
        }
        Shift(log, options.Keep);
        Rename(log, Rotated(log, 1));
        RemoveBeyond(log, options.Keep);
    }
    if (options.Compress)
        CompressAllButNewest(log, mutex);
    return Exit::done;
}

}  // namespace

void AddLogRotate(CLI::App& log, Session& session)
{
    CLI::App* const verb =
        AddVerb(log, "rotate", "Take the log aside, while processes write to it",
                "tessmaru log rotate --keep 7  rename App.log to App.log.1, App.log.1 to App.log.2, "
                "and so on\n"
                "tessmaru log rotate --keep 7 --compress  compress all of these files but App.log.1");
    const auto options = std::make_shared<RotateOptions>();
    verb->add_option("file", options->File, "The log; without it, the log of the settings")->type_name("FILE");
    verb->add_option("--keep", options->Keep, "Keep this number of files")
        ->required()
        ->check(CLI::Range(1U, 10'000U))
        ->type_name("N");
    verb->add_flag("--compress", options->Compress,
                   "Compress all files that are kept, except the newest, in the form of gzip");
    SetAction(verb, session, options, Rotate);
}

}  // namespace tool
