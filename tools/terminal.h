#pragma once

namespace tools {

/// Makes standard output show UTF-8 if it is a terminal. True if it shows colours as well.
bool PrepareTerminal();

}  // namespace tools
