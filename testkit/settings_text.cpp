// The text of a settings store.
#include "testkit/settings_text.h"

namespace testkit {
namespace {

std::string Quoted(std::string_view text)
{
    std::string quoted = "\"";
    for (const char character : text) {
        if (character == '\\' || character == '"')
            quoted += '\\';
        quoted += character;
    }
    return quoted + '"';
}

}  // namespace

std::string Section(std::string_view key, std::string_view values)
{
    return "[" + std::string(key) + "]\r\n" + std::string(values) + "\r\n";
}

std::string TextValue(std::string_view name, std::string_view text)
{
    return (name == "@" ? "@" : Quoted(name)) + "=" + Quoted(text) + "\r\n";
}

std::string LogSection(std::string_view path, std::string_view mask, std::string_view more)
{
    std::string values = TextValue("FilePath", path);
    if (!mask.empty())
        values += TextValue("DebugMask", mask);
    return Section(SuiteKey + "Log\\Application", values) + std::string(more);
}

}  // namespace testkit
