// `tessmaru log summary`: what a log has, at a glance.
#include "cli/command.h"
#include "platform/terminal.h"
#include "verbs/log/filter.h"
#include "verbs/log/log_options.h"
#include "verbs/log/log_source.h"
#include "verbs/log/log_verbs.h"
#include "verbs/log/summary_output.h"

#include <memory>

namespace tool {
namespace {

struct SummaryOptions : LogOptions {
    std::string Page;
};

void Count(records::ByteSource& source, Filter& filter, SummaryBuilder& summary)
{
    records::RecordReader reader(source);
    while (const auto entry = reader.Next()) {
        if (!filter.Wants(*entry))
            continue;
        const bool isRecord = entry->What == records::Entry::Kind::record;
        summary.Add(*entry, isRecord ? filter.TimeOf(entry->Fields) : std::nullopt);
    }
}

Exit Summarize(Session& session, const SummaryOptions& options)
{
    Filter filter(options);
    const std::string name = LogFileOf(options);
    SummaryBuilder summary;
    if (name == "-") {
        InputSource source;
        Count(source, filter, summary);
    } else {
        const auto file = platform::InputFile::Open(name);
        if (!options.Page.empty() && platform::IsSameFile(*file, options.Page))
            throw Failure(Exit::usage, "the page cannot replace the log");
        FilePart source(*file);
        Count(source, filter, summary);
    }
    const SummaryData& data = summary.data();
    if (!options.Page.empty()) {
        session.Out.Redirect(options.Page);
        session.Out.Write(SummaryPage(name, data));
    } else if (session.Json) {
        session.Out.Line(SummaryJson(name, data));
    } else {
        WriteSummary(session.Out, name, data, platform::TerminalWidth());
    }
    return data.Records == 0 ? Exit::nothing : Exit::done;
}

}  // namespace

void AddLogSummary(CLI::App& log, Session& session)
{
    CLI::App* const verb = AddVerb(log, "summary", "Count records by level, source and process, and over time",
                                   "tessmaru log summary --since 1d  show what happened since yesterday\n"
                                   "tessmaru log summary --html App.html  write a page with a timeline to zoom in");
    const auto options = std::make_shared<SummaryOptions>();
    AddFileOptions(verb, *options);
    AddFilterOptions(verb, *options);
    verb->remove_option(verb->get_option("--lines"));
    verb->add_option("--html", options->Page, "Write one page of HTML to this file")->type_name("FILE");
    SetAction(verb, session, options, Summarize);
}

}  // namespace tool
