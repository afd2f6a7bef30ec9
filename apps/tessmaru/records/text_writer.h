// Writes UTF-16 text of a log as UTF-8 that is safe to show.
#pragma once

#include <string>
#include <string_view>

namespace records {

/// How text is written.
enum class Form {
    exact,  // as it is; a lone surrogate becomes U+FFFD
    shown,  // for a terminal or a file of lines: control characters are escaped, a line end starts a marked line
    json    // the inside of a JSON string
};

/// What a further line of a text starts with in the shown form, so that it cannot be taken for a record.
inline constexpr std::string_view ContinuationMark = "    + ";

/// Appends `text` to `out`.
void AppendText(std::string& out, std::u16string_view text, Form form);

}  // namespace records
