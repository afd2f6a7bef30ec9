// A pipe between this process and those that it starts.
#pragma once

#include <cstdint>

namespace testkit {

class Pipe {
public:
    /// @throws std::system_error
    Pipe();
    Pipe(const Pipe&) = delete;
    Pipe& operator=(const Pipe&) = delete;
    ~Pipe();

    /// The end to read from, as the standard input of a Process.
    std::intptr_t input() const { return Input; }

    /// Closes the end to write to: readers meet the end of the pipe.
    void CloseOutput();

private:
    std::intptr_t Input;
    std::intptr_t Output;
};

/// Reads standard input up to its end.
void WaitForEndOfInput();

}  // namespace testkit
