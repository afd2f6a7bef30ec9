// What every verb gets: the options that all verbs share, the output, and the exit codes.
#pragma once

#include "output/output.h"

#include <stdexcept>
#include <string>

namespace tool {

/// The exit codes of the program.
enum class Exit {
    done = 0,        // done, or found
    nothing = 1,     // nothing found, or a check found faults
    usage = 2,       // wrong arguments
    unreadable = 3,  // a file or a setting cannot be read
    internal = 4     // a fault of this program
};

/// Ends a verb: the text goes to standard error, the code to the caller of the program.
class Failure : public std::runtime_error {
public:
    Failure(Exit code, const std::string& text) : std::runtime_error(text), Code(code) {}

    Exit code() const { return Code; }

private:
    Exit Code;
};

struct Session {
    bool Json = false;
    bool Quiet = false;
    bool Verbose = false;
    std::string Color = "auto";
    std::string Registry;  // empty: the settings store of the machine
    std::string Runtime;   // empty: the runtime folder of the machine
    Output Out;
    Exit Result = Exit::done;

    /// Writes a line to standard error, unless `--quiet` was given.
    void Say(const std::string& text) const;
};

}  // namespace tool
