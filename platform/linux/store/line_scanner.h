// Reads text from the start to the end, line by line.
#pragma once

#include "text/case_fold.h"
#include "text/text.h"

#include <algorithm>
#include <string_view>

namespace layer {

/// A position in a text. A line ends with LF, with CR LF, with CR alone, or at the end of the text; the CR of CR LF is
/// a blank before the line's end. A comment is the rest of a line from a semicolon on.
///
/// The texts to compare with are ASCII in capitals; comparisons ignore case.
struct LineScanner {
    explicit LineScanner(TextView text) : All(text) {}

    bool AtEnd() const { return Offset >= All.size(); }
    TextView Rest() const { return All.substr(Offset); }

    bool IsLineEnd(std::size_t at) const
    {
        if (at >= All.size() || All[at] == '\n')
            return true;
        return All[at] == '\r' && (at + 1 == All.size() || All[at + 1] != '\n');
    }

    bool IsBlank(std::size_t at) const
    {
        return at < All.size() && (All[at] == ' ' || All[at] == '\t' || (All[at] == '\r' && !IsLineEnd(at)));
    }

    /// Whether the rest of the line has only blanks and a comment.
    bool OnlyCommentFollows(std::size_t at) const
    {
        while (IsBlank(at))
            ++at;
        return IsLineEnd(at) || All[at] == ';';
    }

    /// The unit at the position. Every line end reads as a line feed, so that no caller needs a second test.
    WCHAR Peek() const { return IsLineEnd(Offset) ? WCHAR{'\n'} : All[Offset]; }

    bool StartsWith(std::string_view text) const
    {
        const TextView start = Rest().substr(0, text.size());
        return std::equal(text.begin(), text.end(), start.begin(), start.end(),
                          [](char letter, WCHAR unit) { return static_cast<WCHAR>(letter) == Fold(unit); });
    }

    /// Whether the rest of the line is this text.
    bool IsLine(std::string_view text) const { return StartsWith(text) && OnlyCommentFollows(Offset + text.size()); }

    /// Skips a text if it is there.
    bool Skip(std::string_view text)
    {
        const bool found = StartsWith(text);
        Offset += found ? text.size() : 0;
        return found;
    }

    void SkipBlanks()
    {
        while (IsBlank(Offset))
            ++Offset;
    }

    void ToNextLine()
    {
        while (!IsLineEnd(Offset))
            ++Offset;
        Offset = std::min(Offset + 1, All.size());
        ++Line;
    }

    /// Skips blank lines and comment lines.
    void SkipEmptyLines()
    {
        while (!AtEnd() && OnlyCommentFollows(Offset))
            ToNextLine();
    }

    TextView All;
    std::size_t Offset = 0;
    std::size_t Line = 1;
};

}  // namespace layer
