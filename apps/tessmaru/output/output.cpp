// Standard output: the buffer, and the codes of colours.
#include "output/output.h"

#include "cli/session.h"
#include "platform/terminal.h"

#include <cstdlib>
#include <filesystem>

namespace tool {
namespace {

std::string_view CodeOf(Style style)
{
    switch (style) {
        case Style::bold: return "\x1b[1m";
        case Style::dim: return "\x1b[2m";
        case Style::red: return "\x1b[31m";
        case Style::yellow: return "\x1b[33m";
        case Style::green: return "\x1b[32m";
        case Style::cyan: return "\x1b[36m";
        default: return {};
    }
}

}  // namespace

void Output::SetColor(std::string_view choice)
{
    const char* const noColor = std::getenv("NO_COLOR");
    const bool isRefused = noColor != nullptr && *noColor != '\0';
    HasColor = choice == "always" || (choice == "auto" && !isRefused && platform::ColorTerminal());
}

void Output::Write(std::string_view text, Style style)
{
    if (!HasColor || style == Style::plain)
        return Write(text);
    Buffer.append(CodeOf(style));
    Buffer.append(text);
    Write("\x1b[0m");
}

void Output::PassOn(std::string_view text)
{
    if (Path.empty())
        platform::WriteOutput(text);
    else if (!File.write(text.data(), static_cast<std::streamsize>(text.size())).flush())
        throw Failure(Exit::unreadable, "cannot write to " + Path);
}

void Output::Flush()
{
    PassOn(Buffer);
    Buffer.clear();
}

void Output::Pass(std::string_view text)
{
    Flush();
    PassOn(text);
}

void Output::Redirect(const std::string& path)
{
    Flush();
    Path = path;
    HasColor = false;
    File.open(std::filesystem::path(std::u8string(path.begin(), path.end())), std::ios::binary);
    if (!File)
        throw Failure(Exit::unreadable, "cannot create " + path);
}

}  // namespace tool
