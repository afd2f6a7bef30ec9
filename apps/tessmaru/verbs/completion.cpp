// `tessmaru completion`: completes verbs and options in a shell, made from the same command line as the help.
#include "cli/command.h"
#include "cli/help.h"
#include "verbs/verbs.h"

#include <functional>

namespace tool {
namespace {

struct CompletionOptions {
    const CLI::App* Program;
    std::string Shell;
};

/// The words that can follow a verb, separated by blanks.
std::string WordsAfter(const CLI::App& verb)
{
    std::string words;
    for (const CLI::App* each : VerbsOf(verb))
        words += each->get_name() + " ";
    for (const std::string& name : LongOptionsOf(verb))
        words += name + " ";
    words.pop_back();
    return words;
}

void ForEachVerb(const CLI::App& verb, const std::function<void(const CLI::App&)>& visit)
{
    visit(verb);
    for (const CLI::App* each : VerbsOf(verb))
        ForEachVerb(*each, visit);
}

/// The verbs before the word at the cursor decide which words are offered; anything else offers files.
void WriteBash(Output& out, const CLI::App& program)
{
    out.Write(
        "_tessmaru()\n{\n"
        "    local word=${COMP_WORDS[COMP_CWORD]} verb=tessmaru each words=\n"
        "    for each in \"${COMP_WORDS[@]:1:COMP_CWORD-1}\"; do\n"
        "        case \"$verb $each\" in\n");
    ForEachVerb(program, [&](const CLI::App& verb) {
        if (verb.get_parent() != nullptr)
            out.Line("            '" + FullName(verb) + "') verb='" + FullName(verb) + "' ;;");
    });
    out.Write("        esac\n    done\n    case \"$verb\" in\n");
    ForEachVerb(program, [&](const CLI::App& verb) {
        out.Line("        '" + FullName(verb) + "') words='" + WordsAfter(verb) + "' ;;");
    });
    out.Write(
        "    esac\n    mapfile -t COMPREPLY < <(compgen -W \"$words\" -- \"$word\")\n}\n"
        "complete -o default -F _tessmaru tessmaru\n");
}

void WriteZsh(Output& out, const CLI::App& program)
{
    out.Write("#compdef tessmaru\nautoload -U +X bashcompinit && bashcompinit\n");
    WriteBash(out, program);
}

std::string Quoted(const std::string& text, char quote, const std::string& escaped)
{
    std::string result(1, quote);
    for (const char letter : text)
        result += letter == quote ? escaped : std::string(1, letter);
    return result + quote;
}

/// The condition under which fish offers the words of a verb: the verb was given, and no verb below it.
std::string FishCondition(const CLI::App& verb)
{
    std::string condition;
    for (const CLI::App* level = &verb; level->get_parent() != nullptr; level = level->get_parent())
        condition += "__fish_seen_subcommand_from " + level->get_name() + "; and ";
    std::string below;
    for (const CLI::App* each : VerbsOf(verb))
        below += " " + each->get_name();
    return condition + (below.empty() ? "true" : "not __fish_seen_subcommand_from" + below);
}

void WriteFish(Output& out, const CLI::App& program)
{
    ForEachVerb(program, [&](const CLI::App& verb) {
        const std::string condition = Quoted(FishCondition(verb), '\'', "\\'");
        for (const CLI::App* each : VerbsOf(verb)) {
            out.Line("complete -c tessmaru -n " + condition + " -a " + each->get_name() + " -d " +
                     Quoted(each->get_description(), '\'', "\\'"));
        }
        for (const std::string& name : LongOptionsOf(verb))
            out.Line("complete -c tessmaru -n " + condition + " -l " + name.substr(2));
    });
}

void WritePowershell(Output& out, const CLI::App& program)
{
    out.Write(
        "Register-ArgumentCompleter -Native -CommandName tessmaru -ScriptBlock {\n"
        "    param($word, $commandAst, $cursor)\n    $words = @{\n");
    ForEachVerb(program, [&](const CLI::App& verb) {
        out.Line("        " + Quoted(FullName(verb), '\'', "''") + " = " + Quoted(WordsAfter(verb), '\'', "''"));
    });
    out.Write(
        "    }\n    $verb = 'tessmaru'\n"
        "    foreach ($each in $commandAst.CommandElements | Select-Object -Skip 1) {\n"
        "        if ($words.ContainsKey(\"$verb $each\")) { $verb = \"$verb $each\" }\n    }\n"
        "    $words[$verb] -split ' ' | Where-Object { $_ -like \"$word*\" }\n}\n");
}

Exit WriteCompletion(Session& session, const CompletionOptions& options)
{
    if (options.Shell == "bash")
        WriteBash(session.Out, *options.Program);
    else if (options.Shell == "zsh")
        WriteZsh(session.Out, *options.Program);
    else if (options.Shell == "fish")
        WriteFish(session.Out, *options.Program);
    else
        WritePowershell(session.Out, *options.Program);
    return Exit::done;
}

}  // namespace

void AddCompletion(CLI::App& program, Session& session)
{
    CLI::App* const verb = AddVerb(program, "completion", "Write the completion of verbs and options for a shell",
                                   "source <(tessmaru completion bash)  complete in this shell");
    const auto options = std::make_shared<CompletionOptions>(CompletionOptions{&program, {}});
    verb->add_option("shell", options->Shell, "The shell")
        ->required()
        ->check(CLI::IsMember({"bash", "zsh", "fish", "powershell"}))
        ->type_name("bash|zsh|fish|powershell");
    SetAction(verb, session, options, WriteCompletion);
}

}  // namespace tool
