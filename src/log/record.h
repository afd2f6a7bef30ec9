// The line of a record: its six fields with separators, in columns.
#pragma once

#include "tessmaru/platform.h"
#include "tessmaru/text.h"

#include <string_view>

namespace logging {

using TextView = std::basic_string_view<unsigned short>;

/// One record as it is in the file. The line is in one piece because one call must write it: records of several writers
/// would mix otherwise.
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
    utility::wstring Long;  // the line if it does not fit into `Usual`, else empty
    unsigned short Usual[UsualUnits];
};

}  // namespace logging
