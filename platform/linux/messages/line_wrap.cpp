// Breaks text into lines of a limited width, as FormatMessageW does with a width in its flags.
#include "messages/line_wrap.h"

#include <algorithm>
#include <string_view>

namespace {

using layer::TextView;

bool IsBlank(WCHAR unit)
{
    return unit == ' ' || unit == '\t';
}

bool IsLineEnd(WCHAR unit)
{
    return unit == '\r' || unit == '\n';
}

/// Removes the units at the start of a text that pass the test. @return those units
template <class Test>
TextView Take(TextView& text, Test test)
{
    const auto end = std::find_if_not(text.begin(), text.end(), test);
    const TextView taken = text.substr(0, static_cast<std::size_t>(end - text.begin()));
    text.remove_prefix(taken.size());
    return taken;
}

}  // namespace

void layer::WrapLines(TextView text, std::size_t width, UnitWriter& out)
{
    std::size_t column = 0;
    while (!text.empty() && !out.overrun()) {
        TextView blanks = Take(text, IsBlank);
        const TextView word = Take(text, [](WCHAR unit) { return !IsBlank(unit) && !IsLineEnd(unit); });
        if (word.empty()) {
            blanks = blanks.substr(0, width - std::min(width, column));
        } else if (column + blanks.size() + word.size() > width) {
            if (column > 0)
                out.Put(std::string_view("\r\n"));
            blanks = {};
            column = 0;
        }
        out.Put(blanks);
        out.Put(word);
        column += blanks.size() + word.size();
        if (const TextView ends = Take(text, IsLineEnd); !ends.empty()) {
            out.Put(ends);
            column = 0;
        }
    }
}
