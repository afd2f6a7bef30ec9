// `tessmaru mask`: reads a debug mask, changes bits and shows it in all its forms.
#include "cli/command.h"
#include "output/json.h"
#include "verbs/verbs.h"

#include <fmt/format.h>

#include <charconv>
#include <cstdint>
#include <fstream>
#include <map>

namespace tool {
namespace {

constexpr unsigned Bits = 64;

struct MaskOptions {
    std::string Mask;
    std::vector<unsigned> On;
    std::vector<unsigned> Off;
    std::string Names;
};

/// A mask as the settings hold it: text of `0` and `1`, of which the first 64 characters count.
std::uint64_t ReadText(std::string_view text)
{
    std::uint64_t mask = 0;
    for (const char digit : text.substr(0, Bits)) {
        if (digit != '0' && digit != '1')
            throw Failure(Exit::usage, fmt::format("\"{}\" is no mask: write 0 and 1, a number such as 0x5, or a "
                                                   "decimal number with a # before it",
                                                   text));
        mask = mask << 1 | static_cast<std::uint64_t>(digit - '0');
    }
    return mask;
}

/// A mask as text, as a hexadecimal number (0x5) or as a decimal one (#5).
std::uint64_t ReadMask(const std::string& text)
{
    const bool isHex = text.starts_with("0x") || text.starts_with("0X");
    if (!isHex && !text.starts_with('#'))
        return ReadText(text);
    const std::string_view digits = std::string_view(text).substr(isHex ? 2 : 1);
    std::uint64_t mask = 0;
    const auto [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), mask, isHex ? 16 : 10);
    if (error != std::errc() || end != digits.data() + digits.size())
        throw Failure(Exit::usage, fmt::format("\"{}\" is no number of at most 64 bits", text));
    return mask;
}

std::string TextOf(std::uint64_t mask)
{
    return mask == 0 ? "0" : fmt::format("{:b}", mask);
}

/// The names of bits: a file of lines with a bit and its name. A line that starts with # is a comment.
std::map<unsigned, std::string> ReadNames(const std::string& path)
{
    std::map<unsigned, std::string> names;
    if (path.empty())
        return names;
    std::ifstream file(path);
    if (!file)
        throw Failure(Exit::unreadable, fmt::format("cannot read {}", path));
    unsigned bit = 0;
    unsigned number = 0;
    for (std::string line; std::getline(file, line);) {
        ++number;
        if (line.empty() || line.front() == '#' || line == "\r")
            continue;
        const auto [end, error] = std::from_chars(line.data(), line.data() + line.size(), bit);
        if (error != std::errc() || bit >= Bits)
            throw Failure(Exit::unreadable,
                          fmt::format("{}:{}: a line is a bit from 0 to 63, a blank and a name", path, number));
        std::string name = line.substr(static_cast<std::size_t>(end - line.data()));
        name.erase(0, name.find_first_not_of(" \t"));
        name.erase(name.find_last_not_of(" \t\r") + 1);
        names[bit] = name;
    }
    return names;
}

void WriteJson(Output& out, std::uint64_t mask, const std::map<unsigned, std::string>& names)
{
    JsonLine json;
    json.Text("mask", TextOf(mask));
    json.Text("hex", fmt::format("0x{:X}", mask));
    json.BeginArray("bits");
    for (unsigned bit = 0; bit < Bits; ++bit) {
        if ((mask >> bit & 1) == 0)
            continue;
        json.BeginObject();
        json.Number("bit", bit);
        if (const auto name = names.find(bit); name != names.end())
            json.Text("name", name->second);
        json.EndObject();
    }
    json.EndArray();
    out.Line(json.Take());
}

Exit RunMask(Session& session, const MaskOptions& options)
{
    std::uint64_t mask = ReadMask(options.Mask);
    for (const unsigned bit : options.On)
        mask |= std::uint64_t{1} << bit;
    for (const unsigned bit : options.Off)
        mask &= ~(std::uint64_t{1} << bit);
    if (options.Mask.size() > Bits && options.Mask.find_first_not_of("01") == std::string::npos)
        session.Say("only the first 64 characters of a mask count");
    const auto names = ReadNames(options.Names);
    if (session.Json) {
        WriteJson(session.Out, mask, names);
        return Exit::done;
    }
    session.Out.Line(fmt::format("DebugMask  {}", TextOf(mask)));
    session.Out.Line(fmt::format("hex        0x{:X}", mask));
    session.Out.Line(fmt::format("decimal    #{}", mask));
    for (unsigned bit = 0; bit < Bits; ++bit) {
        if ((mask >> bit & 1) == 0)
            continue;
        const auto name = names.find(bit);
        session.Out.Line(name == names.end() ? fmt::format("bit {:<6} on", bit)
                                             : fmt::format("bit {:<6} on  {}", bit, name->second));
    }
    return Exit::done;
}

}  // namespace

void AddMask(CLI::App& program, Session& session)
{
    CLI::App* const verb = AddVerb(program, "mask", "Show a debug mask, and turn bits on or off",
                                   "tessmaru mask 101  show which bits are on\n"
                                   "tessmaru mask 0x5 --on 7  turn a bit on, and show the text for the settings\n"
                                   "tessmaru mask 101 --names bits.txt  show the names of the bits");
    const auto options = std::make_shared<MaskOptions>();
    verb->add_option("mask", options->Mask,
                     "The mask: 0 and 1 as in the settings, 0x with hexadecimal digits, or # "
                     "with decimal digits")
        ->required()
        ->type_name("MASK");
    verb->add_option("--on", options->On, "Turn this bit on")->check(CLI::Range(0U, Bits - 1))->type_name("BIT");
    verb->add_option("--off", options->Off, "Turn this bit off")->check(CLI::Range(0U, Bits - 1))->type_name("BIT");
    verb->add_option("--names", options->Names, "Read the names of bits from lines such as: 7 Radio")
        ->type_name("FILE");
    SetAction(verb, session, options, RunMask);
}

}  // namespace tool
