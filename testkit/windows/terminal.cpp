// Standard output as a console of Windows.
#include "testkit/terminal.h"

#include <windows.h>

namespace testkit {

bool PrepareTerminal()
{
    const HANDLE output = GetStdHandle(STD_OUTPUT_HANDLE);
    DWORD mode = 0;
    if (!GetConsoleMode(output, &mode))
        return false;
    SetConsoleOutputCP(CP_UTF8);
    return SetConsoleMode(output, mode | ENABLE_VIRTUAL_TERMINAL_PROCESSING) != FALSE;
}

}  // namespace testkit
