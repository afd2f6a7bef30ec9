// `tessmaru log follow`: shows records as they are written.
#include "cli/command.h"
#include "platform/changes.h"
#include "text/paths.h"
#include "verbs/log/cursor.h"
#include "verbs/log/filter.h"
#include "verbs/log/followed_log.h"
#include "verbs/log/last_records.h"
#include "verbs/log/log_options.h"
#include "verbs/log/log_verbs.h"
#include "verbs/log/record_output.h"

#include <memory>
#include <optional>

namespace tool {
namespace {

using namespace std::chrono_literals;

struct FollowOptions : LogOptions {
    std::string CursorFile;
};

/// Passes the output on, and then saves the place: a stop between the two repeats records, but loses none.
void Deliver(Session& session, FollowedLog& log, std::optional<Cursor>& cursor)
{
    session.Out.Flush();
    if (cursor)
        cursor->Save(log.Place());
}

void Start(FollowedLog& log, const FollowOptions& options, const std::optional<Cursor>& cursor, Filter& filter)
{
    if (const auto place = cursor ? cursor->Load() : std::nullopt)
        return log.Resume(*place);
    log.StartAt([&](platform::InputFile& file) -> std::uint64_t {
        if (options.Count > 0)
            return StartOfLast(file, options.Count, filter);
        // A cursor is for every record of the log.
        return cursor ? 0 : records::FindRecordStart(file, file.Size(), file.Size());
    });
}

Exit Follow(Session& session, const FollowOptions& options)
{
    constexpr std::size_t deliverySize = 64 * 1024;
    const std::string name = LogFileOf(options);
    if (name == "-")
        throw Failure(Exit::usage, "standard input ends, so it cannot be followed; use: tessmaru log show -");
    Filter filter(options);
    const RecordOutput output(session.Json, session.Out.hasColor(), name);
    std::optional<Cursor> cursor;
    if (!options.CursorFile.empty())
        cursor.emplace(options.CursorFile);
    const auto changes = platform::Changes::Watch(Utf8Of(FolderOf(name)));
    FollowedLog log(name, [&session](const std::string& text) { session.Say(text); });
    Start(log, options, cursor, filter);
    // Even if this program is killed before it reads anything, the next start goes on here.
    Deliver(session, log, cursor);
    do {
        log.Refresh();
        while (const auto entry = log.Next()) {
            if (filter.Wants(*entry))
                output.Append(session.Out.Text(), *entry, filter);
            if (session.Out.Text().size() < deliverySize)
                continue;
            Deliver(session, log, cursor);
            if (!changes->Wait(0ms))
                return Exit::done;
        }
        Deliver(session, log, cursor);
    } while (changes->Wait(log.Pause()));
    return Exit::done;
}

}  // namespace

void AddLogFollow(CLI::App& log, Session& session)
{
    CLI::App* const verb = AddVerb(log, "follow", "Show new records as they are written",
                                   "tessmaru log follow -n 10  show the last 10 records, then new ones\n"
                                   "tessmaru log follow --level WARN+  show new warnings and errors\n"
                                   "tessmaru log follow --json --cursor App.cursor  pass every record on, also those "
                                   "that were written while this program did not run");
    const auto options = std::make_shared<FollowOptions>();
    AddFileOptions(verb, *options);
    AddFilterOptions(verb, *options);
    verb->get_option("--lines")->description("First show the last N records");
    verb->add_option("--cursor", options->CursorFile,
                     "Keep in this file what was read, and go on there at the next start; without such a file, start "
                     "with the first record of the log")
        ->type_name("FILE");
    SetAction(verb, session, options, Follow);
}

}  // namespace tool
