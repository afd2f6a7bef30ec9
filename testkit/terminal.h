// Standard output as a terminal.
#pragma once

namespace testkit {

/// Makes standard output show UTF-8 if it is a terminal. @return whether it also shows colours.
bool PrepareTerminal();

}  // namespace testkit
