// The program that runs, on Windows.
#include "testkit/program.h"

#include "testkit/windows/last_failure.h"
#include "testkit/windows/wide.h"

#include <shellapi.h>

namespace testkit {

std::filesystem::path ThisProgram()
{
    std::wstring path(0x8000, L'\0');
    path.resize(GetModuleFileNameW(nullptr, path.data(), static_cast<DWORD>(path.size())));
    return path;
}

std::vector<std::string> Arguments(int, char**)
{
    // `main` gets them in the active code page.
    int count = 0;
    wchar_t** const words = CommandLineToArgvW(GetCommandLineW(), &count);
    if (words == nullptr)
        ThrowLastFailure("the command line");
    std::vector<std::string> arguments;
    for (int i = 1; i < count; ++i)
        arguments.push_back(Utf8FromWide(words[i]));
    LocalFree(words);
    return arguments;
}

}  // namespace testkit
