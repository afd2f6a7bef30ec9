// The time stamp of a record: "19/11/2005 09:09:12.045".
#pragma once

#include "system.h"
#include "tessmaru/text.h"

namespace logging {

/// The room for a short date and its terminator. A longer one fails, and with it the record.
constexpr int MaxDateUnits = 20;

/// Updates a text to the local time: the date in the short form of the machine, the time in a fixed form.
///
/// Within one second it changes only the milliseconds of the text, because formatting a date takes longer than writing
/// a record. One object serves one thread at a time.
class TimeStamp {
public:
    constexpr TimeStamp() = default;

    /// Makes `text` show the present moment. @return 0, or the code of the platform's failure.
    LONG Update(utility::wstring& text);

    /// Whether the last Update found another second than the one before.
    bool isNewSecond() const { return NewSecond; }

private:
    /// The fields of a moment from the year to the second, which SYSTEMTIME starts with.
    struct Second {
        WORD Fields[7];
    };

    Second Shown{};
    bool NewSecond = false;
    const utility::wstring* ShownIn = nullptr;  // the text that shows it; null: none
};

}  // namespace logging
