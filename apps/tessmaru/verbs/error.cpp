// `tessmaru error`: what a code means, which code a name has, and the codes in a stream of text.
#include "cli/command.h"
#include "codes/readings.h"
#include "output/json.h"
#include "text/input_lines.h"
#include "verbs/verbs.h"

#include <fmt/format.h>

#include <unordered_map>

namespace tool {
namespace {

struct ErrorOptions {
    std::vector<std::string> Codes;
    std::string Text;
};

/// The number in the form in which it is usually written.
std::string Number(const Reading& reading)
{
    const bool isSmall = reading.Kind == CodeKind::win32 || reading.Kind == CodeKind::errnum;
    return isSmall ? fmt::format("{}", reading.Code) : fmt::format("0x{:08X}", reading.Code);
}

void Write(Session& session, const Reading& reading)
{
    if (session.Json) {
        JsonLine json;
        json.Text("kind", NameOf(reading.Kind));
        json.Number("code", reading.Code);
        json.Text("hex", fmt::format("0x{:08X}", reading.Code));
        json.Text("name", reading.Name);
        json.Text("text", reading.Description);
        session.Out.Line(json.Take());
        return;
    }
    session.Out.Write(fmt::format("{:<9} {:<10}  ", NameOf(reading.Kind), Number(reading)));
    session.Out.Write(reading.Name.empty() ? "(no name)" : reading.Name, Style::bold);
    session.Out.Line(reading.Description.empty() ? "" : "  " + reading.Description);
}

/// " {E_ACCESSDENIED: Access is denied.}", or nothing for a number that is no known code.
std::string NoteFor(std::uint32_t code)
{
    const auto readings = ReadingsOf(code);
    if (readings.empty())
        return {};
    const Reading& reading = readings.front();
    const std::string between = reading.Name.empty() || reading.Description.empty() ? "" : ": ";
    return fmt::format(" {{{}{}{}}}", reading.Name, between, reading.Description);
}

/// Adds a note after each number of the form 0x and eight digits.
Exit Annotate(Session& session)
{
    constexpr std::size_t length = 10;
    constexpr std::string_view digits = "0123456789abcdefABCDEF";
    std::unordered_map<std::uint32_t, std::string> notes;
    bool found = false;
    ForEachInputLine([&](std::string_view line) {
        for (std::size_t place = line.find("0x"); place != std::string_view::npos; place = line.find("0x")) {
            const std::string_view word = line.substr(place, length);
            const bool isLonger = line.size() > place + length && digits.find(line[place + length]) != digits.npos;
            const bool isCode = word.size() == length && !isLonger && word.find_first_not_of(digits, 2) == word.npos;
            session.Out.Write(line.substr(0, place + (isCode ? length : 2)));
            if (const auto code = isCode ? ReadCode(word) : std::nullopt) {
                const auto [note, isNew] = notes.try_emplace(*code);
                if (isNew)
                    note->second = NoteFor(*code);
                session.Out.Write(note->second, Style::cyan);
                found = found || !note->second.empty();
            }
            line.remove_prefix(place + (isCode ? length : 2));
        }
        session.Out.Line(line);
    });
    return found ? Exit::done : Exit::nothing;
}

Exit Explain(Session& session, const ErrorOptions& options)
{
    if (options.Codes == std::vector<std::string>{"-"})
        return Annotate(session);
    if (options.Codes.empty() && options.Text.empty())
        throw Failure(Exit::usage, "give a code, a name, --search TEXT, or - for standard input");
    Exit result = Exit::done;
    const auto write = [&](const std::vector<Reading>& readings, const std::string& what) {
        for (const Reading& reading : readings)
            Write(session, reading);
        if (readings.empty()) {
            session.Say(fmt::format("nothing is known about \"{}\"", what));
            result = Exit::nothing;
        }
    };
    for (const std::string& word : options.Codes) {
        const auto code = ReadCode(word);
        write(code ? ReadingsOf(*code) : ReadingsOf(std::string_view(word)), word);
    }
    if (!options.Text.empty())
        write(Search(options.Text), options.Text);
    return result;
}

}  // namespace

void AddError(CLI::App& program, Session& session)
{
    CLI::App* const verb = AddVerb(program, "error", "Explain error codes",
                                   "tessmaru error 0x80070005  explain a code\n"
                                   "tessmaru error -2147024891  explain a negative number\n"
                                   "tessmaru error E_ACCESSDENIED  find the code of a name\n"
                                   "tessmaru error --search \"time-out\"  find codes by their text\n"
                                   "tessmaru log | tessmaru error -  explain each code in a text");
    const auto options = std::make_shared<ErrorOptions>();
    verb->add_option("codes", options->Codes, "Codes or names; - reads standard input")->type_name("CODE");
    verb->add_option("--search", options->Text, "Find codes whose name or text contains this")->type_name("TEXT");
    SetAction(verb, session, options, Explain);
}

}  // namespace tool
