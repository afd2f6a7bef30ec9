// The terminal and the program's arguments, as the platform gives them.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace tool::platform {

/// The arguments without the program's name, in UTF-8.
std::vector<std::string> Arguments(int count, char** arguments);

/// Makes the standard streams carry bytes unchanged, and a closed pipe end the program without a message.
void PrepareStreams();

/// Whether standard output is a terminal that shows colours.
bool ColorTerminal();

/// Whether standard error is a terminal, so that a progress bar can be shown.
bool ProgressTerminal();

/// The columns of the terminal; 80 without one.
unsigned TerminalWidth();

/// Writes to standard output. Ends the program without a message if the reader closed its end.
void WriteOutput(std::string_view text);

/// Sets a variable of this process's environment.
void SetVariable(const char* name, const std::string& value);

}  // namespace tool::platform
