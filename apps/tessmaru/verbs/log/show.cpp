// `tessmaru log show`: records of a log as text or as lines of JSON.
#include "cli/command.h"
#include "cli/nearest.h"
#include "verbs/log/filter.h"
#include "verbs/log/last_records.h"
#include "verbs/log/log_options.h"
#include "verbs/log/log_source.h"
#include "verbs/log/log_verbs.h"
#include "verbs/log/record_output.h"

#include <deque>

namespace tool {
namespace {

/// Writes the wanted entries of a source. @return how many
std::size_t WriteAll(Session& session, records::ByteSource& source, std::uint64_t offset, Filter& filter,
                     const RecordOutput& output)
{
    records::RecordReader reader(source, offset);
    std::size_t count = 0;
    while (const auto entry = reader.Next()) {
        if (!filter.Wants(*entry)) {
            if (!filter.texts().empty())
                reader.SkipToAny(filter.texts());
            continue;
        }
        ++count;
        output.Append(session.Out.Text(), *entry, filter);
        session.Out.FlushIfFull();
    }
    return count;
}

/// Writes the last `wanted` entries of a source that can be read only once.
std::size_t WriteLastOfInput(Session& session, std::size_t wanted, Filter& filter, const RecordOutput& output)
{
    InputSource source;
    records::RecordReader reader(source);
    std::deque<std::string> last;
    while (const auto entry = reader.Next()) {
        if (!filter.Wants(*entry))
            continue;
        if (last.size() == wanted)
            last.pop_front();
        output.Append(last.emplace_back(), *entry, filter);
    }
    for (const std::string& text : last)
        session.Out.Write(text);
    return last.size();
}

Exit Show(Session& session, const LogOptions& options)
{
    Filter filter(options);
    const std::string name = LogFileOf(options);
    const RecordOutput output(session.Json, session.Out.hasColor(), name);
    if (name == "-") {
        InputSource source;
        const std::size_t count = options.Count == 0 ? WriteAll(session, source, 0, filter, output)
                                                     : WriteLastOfInput(session, options.Count, filter, output);
        return count == 0 ? Exit::nothing : Exit::done;
    }
    const auto file = platform::InputFile::Open(name);
    const std::uint64_t begin = options.Count == 0 ? 0 : StartOfLast(*file, options.Count, filter);
    FilePart part(*file, begin);
    const std::size_t count = WriteAll(session, part, begin, filter, output);
    return count == 0 ? Exit::nothing : Exit::done;
}

struct ShowOptions : LogOptions {
    const CLI::App* Verb;
};

/// A mistyped verb of `log` is taken for a file.
Exit ShowOrSuggest(Session& session, const ShowOptions& options)
try {
    return Show(session, options);
} catch (const Failure& failure) {
    std::vector<std::string> names;
    for (const CLI::App* each : options.Verb->get_subcommands(nullptr))
        names.push_back(each->get_name());
    const auto nearest = Nearest(options.File, names);
    if (failure.code() != Exit::unreadable || options.File.empty() || !nearest)
        throw;
    throw Failure(failure.code(), std::string(failure.what()) + "; did you mean \"" + *nearest + "\"?");
}

}  // namespace

void AddLogShow(CLI::App& log, Session& session)
{
    CLI::App* const show = AddVerb(log, "show", "Show records; log alone does the same",
                                   "tessmaru log show -n 20  show the last 20 records\n"
                                   "tessmaru log show --grep timeout --json  write records with a text as JSON\n"
                                   "tessmaru log show --previous  show the log before the last rollover");
    for (CLI::App* const verb : {&log, show}) {
        const auto options = std::make_shared<ShowOptions>();
        options->Verb = verb;
        AddFileOptions(verb, *options);
        AddFilterOptions(verb, *options);
        SetAction(verb, session, options, ShowOrSuggest);
    }
}

}  // namespace tool
