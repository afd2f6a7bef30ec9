// Help, made from the command line itself, so that the two cannot differ.
#include "cli/help.h"

#include <algorithm>
#include <sstream>

namespace tool {
namespace {

constexpr std::size_t Column = 30;  // of the descriptions

std::string NamesOf(const CLI::Option& option)
{
    // The parser adds its checks to the name of the type.
    const std::string type = option.get_type_name();
    const std::string value = option.get_type_size() == 0 ? std::string() : type.substr(0, type.find(':'));
    if (option.get_positional())
        return value.empty() ? option.get_name(true) : value;
    std::string names;
    for (const std::string& name : option.get_snames())
        names += (names.empty() ? "-" : ", -") + name;
    for (const std::string& name : option.get_lnames())
        names += (names.empty() ? "--" : ", --") + name;
    return value.empty() ? names : names + " " + value;
}

void WriteRow(Output& out, const std::string& name, const std::string& description)
{
    out.Write("  ");
    out.Write(name, Style::bold);
    if (name.size() + 2 >= Column)
        out.Write("\n" + std::string(Column, ' '));
    else
        out.Write(std::string(Column - name.size() - 2, ' '));
    out.Line(description);
}

void WriteHeading(Output& out, const char* heading)
{
    out.Write("\n");
    out.Write(heading, Style::bold);
    out.Write("\n");
}

void WriteOptions(Output& out, const CLI::App& verb, const char* heading)
{
    const std::vector<OptionText> options = OptionsOf(verb);
    if (options.empty())
        return;
    WriteHeading(out, heading);
    for (const OptionText& option : options)
        WriteRow(out, option.Names, option.Description);
}

}  // namespace

std::string FullName(const CLI::App& verb)
{
    return verb.get_parent() == nullptr ? verb.get_name() : FullName(*verb.get_parent()) + " " + verb.get_name();
}

const CLI::App& ProgramOf(const CLI::App& verb)
{
    return verb.get_parent() == nullptr ? verb : ProgramOf(*verb.get_parent());
}

std::vector<std::string> LongOptionsOf(const CLI::App& verb)
{
    std::vector<std::string> names;
    for (const CLI::App* level = &verb;; level = &ProgramOf(verb)) {
        for (const CLI::Option* option : level->get_options()) {
            for (const std::string& name : option->get_lnames()) {
                if (level->get_parent() == nullptr || option != level->get_help_ptr())
                    names.push_back("--" + name);
            }
        }
        if (level->get_parent() == nullptr)
            return names;
    }
}

std::vector<Example> ExamplesOf(const CLI::App& verb)
{
    std::istringstream lines(verb.get_footer());
    std::vector<Example> examples;
    for (std::string line; std::getline(lines, line);) {
        const std::size_t gap = line.find("  ");
        examples.push_back({line.substr(0, gap), gap == std::string::npos ? "" : line.substr(gap + 2)});
    }
    return examples;
}

std::vector<OptionText> OptionsOf(const CLI::App& verb)
{
    std::vector<OptionText> options;
    for (const CLI::Option* option : verb.get_options()) {
        // Every level has the option of the help. One mention is enough.
        if (verb.get_parent() != nullptr && option == verb.get_help_ptr())
            continue;
        options.push_back({NamesOf(*option), option->get_description(), option->get_positional()});
    }
    std::stable_partition(options.begin(), options.end(), [](const OptionText& option) { return option.IsArgument; });
    return options;
}

std::vector<const CLI::App*> VerbsOf(const CLI::App& verb)
{
    std::vector<const CLI::App*> verbs;
    for (const CLI::App* each : verb.get_subcommands([](const CLI::App*) { return true; })) {
        if (!each->get_group().empty())
            verbs.push_back(each);
    }
    return verbs;
}

std::string UsageOf(const CLI::App& verb)
{
    std::string usage = FullName(verb);
    if (!VerbsOf(verb).empty())
        usage += verb.get_require_subcommand_min() > 0 ? " VERB" : " [VERB]";
    usage += " [OPTION]...";
    for (const CLI::Option* option : verb.get_options()) {
        if (!option->get_positional())
            continue;
        const std::string name = NamesOf(*option) + (option->get_items_expected_max() > 1 ? "..." : "");
        usage += option->get_required() ? " " + name : " [" + name + "]";
    }
    return usage;
}

void WriteHelp(Output& out, const CLI::App& verb)
{
    out.Line(verb.get_description() + ".");
    WriteHeading(out, "Examples");
    for (const Example& example : ExamplesOf(verb))
        WriteRow(out, example.Command, example.Purpose);
    WriteHeading(out, "Usage");
    out.Line("  " + UsageOf(verb));
    if (const auto verbs = VerbsOf(verb); !verbs.empty()) {
        WriteHeading(out, "Verbs");
        for (const CLI::App* each : verbs)
            WriteRow(out, each->get_name(), each->get_description());
    }
    WriteOptions(out, verb, "Options");
    if (verb.get_parent() != nullptr)
        WriteOptions(out, ProgramOf(verb), "Options of all verbs");
}

}  // namespace tool
