// The command line: shared options, errors of usage, and the exit codes.
#include "cli/application.h"

#include "cli/command.h"
#include "cli/help.h"
#include "cli/nearest.h"
#include "platform/terminal.h"
#include "verbs/verbs.h"

#include <algorithm>
#include <cstdio>
#include <exception>
#include <memory>

namespace tool {
namespace {

constexpr const char* Version = "tessmaru " TESSMARU_TOOL_VERSION;

void AddSharedOptions(CLI::App& program, Session& session)
{
    program.add_flag("--json", session.Json, "Write JSON instead of text");
    program.add_option("--color", session.Color, "Use colours")
        ->check(CLI::IsMember({"auto", "always", "never"}))
        ->type_name("auto|always|never");
    program.add_flag("-q,--quiet", session.Quiet, "Write no messages to standard error");
    program.add_flag("-v,--verbose", session.Verbose, "Explain what is done, on standard error");
    program.add_option("--registry", session.Registry, "Read the settings from this store (Linux)")->type_name("FILE");
    program.add_option("--runtime", session.Runtime, "Use this runtime folder (Linux)")->type_name("DIR");
    program.set_version_flag("--version", Version, "Show the version of this program");
}

/// What the shared options set up before a verb runs.
void ApplySharedOptions(Session& session)
{
    session.Out.SetColor(session.Color);
    if (!session.Registry.empty())
        platform::SetVariable("VELTRIX_REGISTRY", session.Registry);
    if (!session.Runtime.empty())
        platform::SetVariable("VELTRIX_RUNTIME", session.Runtime);
    if (session.Verbose)
        platform::SetVariable("VELTRIX_DEBUG_OUTPUT", "1");
}

/// The verb whose arguments are at fault: the last one that was given.
const CLI::App* GivenVerb(const CLI::App& program)
{
    const CLI::App* verb = &program;
    while (!verb->get_subcommands().empty())
        verb = verb->get_subcommands().front();
    return verb;
}

/// The first word that no option and no verb takes.
std::string FirstUnknown(const CLI::App& program, const std::vector<std::string>& words)
{
    const std::vector<std::string> left = program.remaining(true);
    if (!left.empty())
        return left.front();
    if (!program.get_subcommands().empty())
        return {};
    const auto word = std::find_if(words.begin(), words.end(), [](const auto& each) { return each[0] != '-'; });
    return word == words.end() ? std::string() : *word;
}

/// The names that `verb` knows: of its verbs, or of its options if the word is one.
std::vector<std::string> KnownNames(const CLI::App& verb, bool options)
{
    if (options)
        return LongOptionsOf(verb);
    std::vector<std::string> names;
    for (const CLI::App* each : VerbsOf(verb))
        names.push_back(each->get_name());
    return names;
}

/// A word that no option and no verb takes.
class UnknownWord : public CLI::ParseError {
public:
    explicit UnknownWord(const std::string& word) : CLI::ParseError("UnknownWord", word, CLI::ExitCodes::ExtrasError) {}
};

std::string TextOfUnknown(const CLI::App& verb, const std::string& word)
{
    const std::string text = "there is no \"" + word + "\"";
    const auto nearest = Nearest(word, KnownNames(verb, word[0] == '-'));
    return nearest ? text + "; did you mean \"" + *nearest + "\"?" : text;
}

Exit ReportUsage(const CLI::App& program, const std::vector<std::string>& words, const CLI::ParseError& failure)
{
    const CLI::App& verb = *GivenVerb(program);
    const bool isUnknown = dynamic_cast<const UnknownWord*>(&failure) != nullptr;
    const std::string word = isUnknown ? failure.what() : FirstUnknown(program, words);
    const std::string text = word.empty() ? failure.what() : TextOfUnknown(verb, word);
    std::fprintf(stderr, "tessmaru: %s\nSee: %s --help\n", text.c_str(), FullName(verb).c_str());
    return Exit::usage;
}

Exit Parse(CLI::App& program, Session& session, const std::vector<std::string>& words)
{
    // The parser takes its words in reverse order.
    std::vector<std::string> reversed(words.rbegin(), words.rend());
    try {
        program.parse(std::move(reversed));
        return session.Result;
    } catch (const CLI::CallForHelp&) {
        session.Out.SetColor(session.Color);
        WriteHelp(session.Out, *GivenVerb(program));
    } catch (const CLI::CallForVersion&) {
        session.Out.Line(Version);
    } catch (const CLI::ParseError& failure) {
        return ReportUsage(program, words, failure);
    }
    return Exit::done;
}

/// Lets each option take one word, so that a file can follow it. An option can be given several times.
void TakeOneWordEach(CLI::App& verb)
{
    for (CLI::Option* option : verb.get_options()) {
        if (!option->get_positional())
            option->allow_extra_args(false);
    }
    for (CLI::App* each : verb.get_subcommands(nullptr))
        TakeOneWordEach(*each);
}

}  // namespace

std::unique_ptr<CLI::App> MakeApplication(Session& session)
{
    auto program = std::make_unique<CLI::App>(
        "Read the log of a Veltrix system, look codes up, and find out why a "
        "process does not log",
        "tessmaru");
    program->set_help_flag("-h,--help", "Show this help");
    program->require_subcommand(1);
    program->fallthrough();
    program->footer(
        "tessmaru log follow  show new records as they are written\n"
        "tessmaru error 0x80070005  explain a code\n"
        "tessmaru doctor  find out why a process does not log");
    AddSharedOptions(*program, session);
    AddLog(*program, session);
    AddError(*program, session);
    AddSettings(*program, session);
    AddMask(*program, session);
    AddVersion(*program, session);
    AddDoctor(*program, session);
    AddCompletion(*program, session);
    AddManual(*program, session);
    TakeOneWordEach(*program);
    program->parse_complete_callback([&session] { ApplySharedOptions(session); });
    return program;
}

CLI::App* AddVerb(CLI::App& parent, const std::string& name, const std::string& summary, const std::string& examples)
{
    CLI::App* const verb = parent.add_subcommand(name, summary);
    verb->fallthrough();
    verb->footer(examples);
    return verb;
}

void RefuseOptionsAbove(const CLI::App& verb)
{
    for (const CLI::App* level = verb.get_parent(); level->get_parent() != nullptr; level = level->get_parent()) {
        for (const CLI::Option* option : level->get_options()) {
            if (option->count() > 0)
                throw UnknownWord(option->get_positional() ? option->results().front() : option->get_name());
        }
    }
}

void Session::Say(const std::string& text) const
{
    if (!Quiet)
        std::fprintf(stderr, "tessmaru: %s\n", text.c_str());
}

Exit RunApplication(std::vector<std::string> words)
try {
    Session session;
    const auto program = MakeApplication(session);
    if (words.empty())
        words.emplace_back("--help");
    const Exit result = Parse(*program, session, words);
    session.Out.Flush();
    return result;
} catch (const Failure& failure) {
    std::fprintf(stderr, "tessmaru: %s\n", failure.what());
    return failure.code();
} catch (const std::exception& failure) {
    std::fprintf(stderr, "tessmaru: internal fault: %s\n", failure.what());
    return Exit::internal;
}

}  // namespace tool
