// `tessmaru manual`: the man page, made from the same command line as the help. Packages install it.
#include "cli/command.h"
#include "cli/help.h"
#include "verbs/verbs.h"

namespace tool {
namespace {

struct ManualOptions {
    const CLI::App* Program;
};

/// Text in the language of man pages: hyphens stay hyphens, and no line is taken as a request.
std::string Escaped(const std::string& text)
{
    std::string escaped = text.starts_with('.') || text.starts_with('\'') ? "\\&" : "";
    for (const char letter : text) {
        if (letter == '\\')
            escaped += "\\e";
        else if (letter == '-')
            escaped += "\\-";
        else
            escaped += letter;
    }
    return escaped;
}

void WriteOptions(Output& out, const CLI::App& verb)
{
    for (const OptionText& option : OptionsOf(verb)) {
        out.Line(".TP\n.B " + Escaped(option.Names));
        out.Line(Escaped(option.Description) + ".");
    }
}

void WriteVerb(Output& out, const CLI::App& verb)
{
    out.Line(".SS \"" + Escaped(FullName(verb)) + "\"");
    out.Line(Escaped(verb.get_description()) + ".");
    out.Line(".PP\n.B " + Escaped(UsageOf(verb)));
    for (const Example& example : ExamplesOf(verb)) {
        out.Line(".TP\n.I " + Escaped(example.Command));
        out.Line(Escaped(example.Purpose) + ".");
    }
    WriteOptions(out, verb);
    for (const CLI::App* each : VerbsOf(verb))
        WriteVerb(out, *each);
}

Exit WriteManual(Session& session, const ManualOptions& options)
{
    Output& out = session.Out;
    const CLI::App& program = *options.Program;
    out.Line(".TH TESSMARU 1 \"\" \"tessmaru " TESSMARU_TOOL_VERSION "\" \"Veltrix\"");
    out.Line(".SH NAME\ntessmaru \\- " + Escaped(program.get_description()));
    out.Line(".SH SYNOPSIS\n.B " + Escaped(UsageOf(program)));
    out.Line(".SH EXAMPLES");
    for (const Example& example : ExamplesOf(program)) {
        out.Line(".TP\n.I " + Escaped(example.Command));
        out.Line(Escaped(example.Purpose) + ".");
    }
    out.Line(".SH OPTIONS");
    WriteOptions(out, program);
    out.Line(".SH VERBS");
    for (const CLI::App* verb : VerbsOf(program))
        WriteVerb(out, *verb);
    out.Line(
        ".SH \"EXIT STATUS\"\n"
        ".TP\n.B 0\nDone, or found.\n"
        ".TP\n.B 1\nNothing found, or a check found faults.\n"
        ".TP\n.B 2\nWrong arguments.\n"
        ".TP\n.B 3\nA file or a setting cannot be read.\n"
        ".TP\n.B 4\nA fault of the program.");
    return Exit::done;
}

}  // namespace

void AddManual(CLI::App& program, Session& session)
{
    CLI::App* const verb =
        AddVerb(program, "manual", "Write the man page", "tessmaru manual | man -l -  read the manual of all verbs");
    SetAction(verb, session, std::make_shared<ManualOptions>(ManualOptions{&program}), WriteManual);
}

}  // namespace tool
