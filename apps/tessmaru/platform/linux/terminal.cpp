// The terminal and the program's arguments on Linux.
#include "platform/terminal.h"

#include "cli/session.h"

#include <csignal>
#include <cstdlib>
#include <cstring>
#include <sys/ioctl.h>
#include <unistd.h>

#include <cerrno>

namespace tool::platform {

std::vector<std::string> Arguments(int count, char** arguments)
{
    return count > 1 ? std::vector<std::string>(arguments + 1, arguments + count) : std::vector<std::string>();
}

void PrepareStreams()
{
    // The default action ends the program quietly. A parent may have set another one, which is inherited.
    std::signal(SIGPIPE, SIG_DFL);
}

bool ColorTerminal()
{
    const char* const terminal = std::getenv("TERM");
    return isatty(STDOUT_FILENO) != 0 && terminal != nullptr && std::strcmp(terminal, "dumb") != 0;
}

bool ProgressTerminal()
{
    return isatty(STDERR_FILENO) != 0;
}

unsigned TerminalWidth()
{
    winsize size{};
    return ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col > 0 ? size.ws_col : 80;
}

void WriteOutput(std::string_view text)
{
    while (!text.empty()) {
        const ssize_t count = write(STDOUT_FILENO, text.data(), text.size());
        if (count > 0)
            text.remove_prefix(static_cast<std::size_t>(count));
        else if (count < 0 && errno != EINTR)
            throw Failure(Exit::unreadable, std::string("cannot write to standard output: ") + std::strerror(errno));
    }
}

void SetVariable(const char* name, const std::string& value)
{
    setenv(name, value.c_str(), 1);
}

}  // namespace tool::platform
