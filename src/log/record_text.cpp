// Formats the text of a record.
#include "log/record_text.h"

#include "settings/tag_specification.h"
#include "system.h"

#include <algorithm>

// The buffer is not cleared: that would cost more than formatting a short text.
logging::RecordText::RecordText(const unsigned short* format, va_list arguments)
{
    va_list again;
    va_copy(again, arguments);
    const int units = _vsnwprintf(platform::Wide(Text), MaxUnits, platform::Wide(format), arguments);
    if (units >= 0) {
        Text[units] = 0;
    } else {
        // The text is too long, or an error ended it early. The result does not say where; in a cleared buffer the
        // first zero does.
        std::fill_n(Text, BufferUnits, u'\0');
        _vsnwprintf(platform::Wide(Text), MaxUnits, platform::Wide(format), again);
    }
    va_end(again);
}
