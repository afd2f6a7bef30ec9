#include "tools/terminal.h"

#include <cstdlib>
#include <string_view>

#include <unistd.h>

namespace tools {

bool PrepareTerminal()
{
    const char* terminal = std::getenv("TERM");
    return isatty(STDOUT_FILENO) == 1 && terminal != nullptr && std::string_view(terminal) != "dumb";
}

}  // namespace tools
