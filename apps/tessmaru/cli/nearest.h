// Finds the name that a mistyped word was probably meant to be.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace tool {

/// The name with the fewest single changes from `word`; nothing if even that one differs in more than a third of its
/// letters, at least two.
std::optional<std::string> Nearest(std::string_view word, const std::vector<std::string>& names);

}  // namespace tool
