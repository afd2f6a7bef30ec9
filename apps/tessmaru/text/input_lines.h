// The lines of standard input.
#pragma once

#include <functional>
#include <string_view>

namespace tool {

/// Gives each line without its line end. A line of more than a megabyte is given in parts.
void ForEachInputLine(const std::function<void(std::string_view)>& visit);

}  // namespace tool
