// The distance of two words is the number of insertions, removals, replacements and swaps of neighbours between them.
#include "cli/nearest.h"

#include <algorithm>
#include <cstddef>

namespace tool {
namespace {

char Lower(char letter)
{
    return letter >= 'A' && letter <= 'Z' ? static_cast<char>(letter - 'A' + 'a') : letter;
}

std::size_t Distance(std::string_view one, std::string_view other)
{
    // Row `i` holds the distances of the first `i` letters of `one` to each start of `other`.
    std::vector<std::vector<std::size_t>> rows(one.size() + 1, std::vector<std::size_t>(other.size() + 1));
    for (std::size_t i = 0; i <= one.size(); ++i) {
        for (std::size_t j = 0; j <= other.size(); ++j) {
            if (i == 0 || j == 0) {
                rows[i][j] = i + j;
                continue;
            }
            const std::size_t change = Lower(one[i - 1]) == Lower(other[j - 1]) ? 0 : 1;
            rows[i][j] = std::min({rows[i - 1][j] + 1, rows[i][j - 1] + 1, rows[i - 1][j - 1] + change});
            if (i > 1 && j > 1 && Lower(one[i - 1]) == Lower(other[j - 2]) && Lower(one[i - 2]) == Lower(other[j - 1]))
                rows[i][j] = std::min(rows[i][j], rows[i - 2][j - 2] + 1);
        }
    }
    return rows[one.size()][other.size()];
}

}  // namespace

std::optional<std::string> Nearest(std::string_view word, const std::vector<std::string>& names)
{
    constexpr std::size_t longest = 100;  // a longer word is no mistyped name
    const std::string* nearest = nullptr;
    std::size_t least = std::max<std::size_t>(2, word.size() / 3) + 1;
    for (const std::string& name : names) {
        if (word.size() > longest || name.size() > longest)
            continue;
        if (const std::size_t distance = Distance(word, name); distance < least) {
            least = distance;
            nearest = &name;
        }
    }
    return nearest == nullptr ? std::nullopt : std::optional(*nearest);
}

}  // namespace tool
