// The line of a record: its six fields with separators, in columns.
#pragma once

#include "tessmaru/platform.h"
#include "tessmaru/text.h"

#include <string_view>

namespace logging {

using TextView = std::basic_string_view<unsigned short>;

/// One record as it goes into the file: a line in one piece, as it has to be written by one call.
class Record {
public:
    /// @throws std::bad_alloc only for a source of about a thousand units or more.
    Record(TextView dateTime, DWORD process, DWORD thread, TextView tag, TextView source, TextView text);
    Record(const Record&) = delete;
    Record& operator=(const Record&) = delete;

    TextView line() const { return {Long.empty() ? Usual : Long.data(), Units}; }

private:
    static constexpr std::size_t UsualUnits = 2048;

    std::size_t Units;
    utility::wstring Long;  // a line that does not fit `Usual`
    unsigned short Usual[UsualUnits];
};

}  // namespace logging
