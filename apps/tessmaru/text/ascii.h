// Comparisons that ignore the case of the letters A to Z.
#pragma once

#include <algorithm>
#include <string_view>

namespace tool {

constexpr char LowerAscii(char letter)
{
    return letter >= 'A' && letter <= 'Z' ? static_cast<char>(letter - 'A' + 'a') : letter;
}

constexpr bool EqualLetters(char one, char other)
{
    return LowerAscii(one) == LowerAscii(other);
}

constexpr bool EqualIgnoringCase(std::string_view one, std::string_view other)
{
    return std::equal(one.begin(), one.end(), other.begin(), other.end(), EqualLetters);
}

constexpr bool ContainsIgnoringCase(std::string_view text, std::string_view wanted)
{
    return wanted.empty() ||
           std::search(text.begin(), text.end(), wanted.begin(), wanted.end(), EqualLetters) != text.end();
}

}  // namespace tool
