// Pipes on Linux.
#include "testkit/pipe.h"

#include <cerrno>
#include <system_error>

#include <fcntl.h>
#include <unistd.h>

namespace testkit {

Pipe::Pipe()
{
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0)
        throw std::system_error(errno, std::generic_category(), "pipe");
    Input = ends[0];
    Output = ends[1];
}

Pipe::~Pipe()
{
    CloseOutput();
    close(static_cast<int>(Input));
}

void Pipe::CloseOutput()
{
    if (Output >= 0)
        close(static_cast<int>(Output));
    Output = -1;
}

void WaitForEndOfInput()
{
    char byte;
    ssize_t got;
    do {
        got = read(STDIN_FILENO, &byte, 1);
    } while (got > 0 || (got < 0 && errno == EINTR));
}

}  // namespace testkit
