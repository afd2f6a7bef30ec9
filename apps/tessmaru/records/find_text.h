// Finds a text inside another one, in UTF-16.
#pragma once

#include <cstddef>
#include <string_view>

namespace records {

/// The first place of `wanted` in `text`; npos if it is not in it. An empty text is at the start of every text.
std::size_t FindText(std::u16string_view text, std::u16string_view wanted);

/// The form for every processor, which tests compare with the one above.
std::size_t FindTextPlainly(std::u16string_view text, std::u16string_view wanted);

}  // namespace records
