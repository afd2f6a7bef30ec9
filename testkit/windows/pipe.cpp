// Pipes on Windows.
#include "testkit/pipe.h"

#include "testkit/windows/last_failure.h"

namespace testkit {

Pipe::Pipe()
{
    SECURITY_ATTRIBUTES inherited{sizeof(SECURITY_ATTRIBUTES), nullptr, TRUE};
    HANDLE input = nullptr;
    HANDLE output = nullptr;
    if (!CreatePipe(&input, &output, &inherited, 0) || !SetHandleInformation(output, HANDLE_FLAG_INHERIT, 0))
        ThrowLastFailure("pipe");
    Input = reinterpret_cast<std::intptr_t>(input);
    Output = reinterpret_cast<std::intptr_t>(output);
}

Pipe::~Pipe()
{
    CloseOutput();
    CloseHandle(reinterpret_cast<HANDLE>(Input));
}

void Pipe::CloseOutput()
{
    if (Output != -1)
        CloseHandle(reinterpret_cast<HANDLE>(Output));
    Output = -1;
}

void WaitForEndOfInput()
{
    char byte;
    DWORD got = 0;
    while (ReadFile(GetStdHandle(STD_INPUT_HANDLE), &byte, 1, &got, nullptr)) {
    }
}

}  // namespace testkit
