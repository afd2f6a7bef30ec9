// The text of a record, as its format and its arguments give it.
#pragma once

#include <cstdarg>
#include <string_view>

namespace logging {

/// Formats into a buffer on the stack, so that a log call needs no memory. A text is cut at 1022 units.
class RecordText {
public:
    RecordText(const unsigned short* format, va_list arguments);
    RecordText(const RecordText&) = delete;
    RecordText& operator=(const RecordText&) = delete;

    /// The text up to its first zero unit; an argument can contain one.
    std::basic_string_view<unsigned short> view() const { return Text; }

private:
    static constexpr std::size_t BufferUnits = 1024;
    static constexpr std::size_t MaxUnits = 1022;

    unsigned short Text[BufferUnits];
};

}  // namespace logging
