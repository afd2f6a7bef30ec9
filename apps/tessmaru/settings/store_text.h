// The lines of a settings store, decoded.
#pragma once

#include <cstddef>
#include <set>
#include <string>
#include <string_view>

namespace tool {

/// The text of a store in 16-bit units. CR LF, LF and CR end a line.
struct StoreText {
    std::u16string Units;
    std::set<std::size_t> BadLines;  // numbers of lines with bytes that are not text
};

/// Decodes UTF-16 or UTF-8, as the file's mark says. @param isLatin1 reads a file without a mark as that
StoreText DecodeStore(std::string_view bytes, bool isLatin1);

/// Bytes of a text in the narrow form. @return false if they are not text
bool WidenStoreText(std::string_view bytes, bool isLatin1, std::u16string& text);

}  // namespace tool
