// `tessmaru log convert`: the log as UTF-8, for programs that do not read UTF-16.
#include "cli/command.h"
#include "verbs/log/filter.h"
#include "verbs/log/log_options.h"
#include "verbs/log/log_source.h"
#include "verbs/log/log_verbs.h"
#include "verbs/log/record_output.h"
#include "verbs/log/shown_stream.h"

#include <memory>

namespace tool {
namespace {

struct ConvertOptions : LogOptions {
    std::string Target;
};

std::unique_ptr<platform::InputFile> OpenUnless(const std::string& name, bool isInput)
{
    return isInput ? nullptr : platform::InputFile::Open(name);
}

Exit Convert(Session& session, const ConvertOptions& options)
{
    const std::string name = LogFileOf(options);
    const auto file = OpenUnless(name, name == "-");
    if (!options.Target.empty()) {
        if (file != nullptr && platform::IsSameFile(*file, options.Target))
            throw Failure(Exit::usage, "the log cannot be converted into itself");
        session.Out.Redirect(options.Target);
    }
    InputSource input;
    std::unique_ptr<FilePart> part = file == nullptr ? nullptr : std::make_unique<FilePart>(*file);
    records::ByteSource& source = part == nullptr ? static_cast<records::ByteSource&>(input) : *part;
    if (!session.Json) {
        ShownStream(source, session.Out).WriteAll();
        return Exit::done;
    }
    Filter filter(options);
    const RecordOutput output(true, false, name);
    records::RecordReader reader(source);
    while (const auto entry = reader.Next()) {
        output.Append(session.Out.Text(), *entry, filter);
        session.Out.FlushIfFull();
    }
    return Exit::done;
}

}  // namespace

void AddLogConvert(CLI::App& log, Session& session)
{
    CLI::App* const verb = AddVerb(log, "convert", "Write the whole log as UTF-8",
                                   "tessmaru log convert -o App.txt  write a file\n"
                                   "tessmaru log convert App.log | less  read a log in a pager\n"
                                   "tessmaru log convert --json App.log  write lines of JSON");
    const auto options = std::make_shared<ConvertOptions>();
    AddFileOptions(verb, *options);
    verb->add_option("-o,--output", options->Target, "Write to this file")->type_name("FILE");
    SetAction(verb, session, options, Convert);
}

}  // namespace tool
