// The terminal and the program's arguments on Windows.
#include "platform/terminal.h"

#include "cli/session.h"
#include "platform/windows/wide.h"

#include <fcntl.h>
#include <io.h>
#include <windows.h>

#include <shellapi.h>

#include <algorithm>
#include <cstdio>

namespace tool::platform {
namespace {

constexpr DWORD VirtualTerminal = 0x0004;

}  // namespace

std::vector<std::string> Arguments(int, char**)
{
    int count = 0;
    std::vector<std::string> words;
    wchar_t** const wide = CommandLineToArgvW(GetCommandLineW(), &count);
    for (int i = 1; wide != nullptr && i < count; ++i)
        words.push_back(Narrow(wide[i]));
    LocalFree(wide);
    return words;
}

void PrepareStreams()
{
    _setmode(_fileno(stdin), _O_BINARY);
    _setmode(_fileno(stdout), _O_BINARY);
    SetConsoleOutputCP(CP_UTF8);
}

bool ColorTerminal()
{
    const HANDLE console = GetStdHandle(STD_OUTPUT_HANDLE);
    DWORD mode = 0;
    return GetConsoleMode(console, &mode) != FALSE && SetConsoleMode(console, mode | VirtualTerminal) != FALSE;
}

bool ProgressTerminal()
{
    DWORD mode = 0;
    return GetConsoleMode(GetStdHandle(STD_ERROR_HANDLE), &mode) != FALSE;
}

unsigned TerminalWidth()
{
    CONSOLE_SCREEN_BUFFER_INFO info{};
    if (GetConsoleScreenBufferInfo(GetStdHandle(STD_OUTPUT_HANDLE), &info) == FALSE)
        return 80;
    return static_cast<unsigned>(std::max(info.srWindow.Right - info.srWindow.Left + 1, 1));
}

void WriteOutput(std::string_view text)
{
    const HANDLE output = GetStdHandle(STD_OUTPUT_HANDLE);
    while (!text.empty()) {
        DWORD count = 0;
        if (WriteFile(output, text.data(), static_cast<DWORD>(std::min<std::size_t>(text.size(), 1 << 20)), &count,
                      nullptr) == FALSE) {
            const DWORD error = GetLastError();
            if (error == ERROR_NO_DATA || error == ERROR_BROKEN_PIPE || error == ERROR_PIPE_NOT_CONNECTED)
                ExitProcess(0);
            throw Failure(Exit::unreadable, "cannot write to standard output: " + LastErrorText());
        }
        text.remove_prefix(count);
    }
}

void SetVariable(const char* name, const std::string& value)
{
    SetEnvironmentVariableW(Wide(name).c_str(), Wide(value).c_str());
}

}  // namespace tool::platform
