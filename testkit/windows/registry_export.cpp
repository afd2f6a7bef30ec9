// Reads an export of the registry.
#include "testkit/windows/registry_export.h"

#include "testkit/bytes.h"
#include "testkit/utf16.h"

#include <algorithm>
#include <stdexcept>

namespace testkit {
namespace {

constexpr std::uint32_t TextType = 1;
constexpr std::uint32_t BinaryType = 3;
constexpr std::uint32_t NumberType = 4;

/// The rest of an export.
class Reader {
public:
    explicit Reader(std::string_view text) : Rest(text) {}

    bool IsAtEnd() const { return Rest.empty(); }
    char Next() const { return Rest.empty() ? '\0' : Rest.front(); }

    /// Takes the text up to the end of the line.
    std::string_view TakeLine()
    {
        const std::string_view line = Rest.substr(0, Rest.find('\n'));
        Rest.remove_prefix(std::min(line.size() + 1, Rest.size()));
        return line.substr(0, line.find_last_not_of(" \t\r") + 1);
    }

    bool Take(std::string_view prefix)
    {
        const bool found = Rest.starts_with(prefix);
        if (found)
            Rest.remove_prefix(prefix.size());
        return found;
    }

    /// Takes a quoted text, which may have several lines.
    std::string TakeText()
    {
        std::string text;
        std::size_t at = 1;
        for (; at < Rest.size() && Rest[at] != '"'; ++at) {
            if (Rest[at] == '\\')
                ++at;
            text += Rest.at(at);
        }
        Rest.remove_prefix(std::min(at + 1, Rest.size()));
        return text;
    }

    /// Takes a list of bytes, which a backslash at the end of a line continues.
    std::string TakeBytes()
    {
        std::string line;
        do {
            if (line.ends_with('\\'))
                line.pop_back();
            line += TakeLine();
        } while (line.ends_with('\\'));
        std::erase_if(line, [](char letter) { return letter == ' ' || letter == '\t'; });
        std::string bytes;
        for (std::size_t at = 0; at < line.size(); at = std::min(line.find(',', at), line.size() - 1) + 1)
            bytes += static_cast<char>(std::stoul(line.substr(at, 2), nullptr, 16));
        return bytes;
    }

private:
    std::string_view Rest;
};

ExportedValue TakeValue(Reader& reader, const std::string& key)
{
    ExportedValue value{key, false, {}, TextType, {}};
    if (!reader.Take("@"))
        value.Name = reader.TakeText();
    if (!reader.Take("="))
        throw std::runtime_error("a value without a type: " + value.Name);
    if (reader.Next() == '"') {
        value.Data = EncodeUtf16(reader.TakeText()) + Half(0);
        reader.TakeLine();
    } else if (reader.Take("dword:")) {
        value.Type = NumberType;
        value.Data = Word(std::stoul(std::string(reader.TakeLine()), nullptr, 16));
    } else if (reader.Take("hex:")) {
        value.Type = BinaryType;
        value.Data = reader.TakeBytes();
    } else if (reader.Take("hex(")) {
        std::string digits;
        while (!reader.IsAtEnd() && reader.Next() != ')') {
            digits += reader.Next();
            reader.Take(digits.substr(digits.size() - 1));
        }
        reader.Take("):");
        value.Type = static_cast<std::uint32_t>(std::stoul(digits, nullptr, 16));
        value.Data = reader.TakeBytes();
    } else if (reader.Take("-")) {
        value.IsKey = true;  // a deletion: the value has not been set
    } else {
        throw std::runtime_error("a value of no known type: " + value.Name);
    }
    return value;
}

}  // namespace

std::vector<ExportedValue> ReadExport(std::string_view text)
{
    std::vector<ExportedValue> values;
    std::string key;
    Reader reader(text);
    while (!reader.IsAtEnd()) {
        if (reader.Next() == '"' || reader.Next() == '@') {
            values.push_back(TakeValue(reader, key));
            continue;
        }
        const std::string_view line = reader.TakeLine();
        if (line.starts_with('[') && line.ends_with(']')) {
            key = line.substr(1, line.size() - 2);
            values.push_back({key, true, {}, 0, {}});
        }
    }
    return values;
}

}  // namespace testkit
