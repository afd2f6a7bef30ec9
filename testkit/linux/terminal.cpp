// Standard output as a terminal on Linux.
#include "testkit/terminal.h"

#include <cstdlib>
#include <string_view>

#include <unistd.h>

namespace testkit {

bool PrepareTerminal()
{
    const char* const terminal = std::getenv("TERM");
    return isatty(STDOUT_FILENO) == 1 && terminal != nullptr && std::string_view(terminal) != "dumb";
}

}  // namespace testkit
