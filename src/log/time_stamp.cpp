// Makes the time stamps of records.
#include "log/time_stamp.h"

#include "errors/last_error.h"
#include "settings/tag_specification.h"
#include "tessmaru/text.h"

#include <cstddef>
#include <cstring>

using namespace utility::literals;

namespace {

constexpr int MaxTimeUnits = 15;
constexpr std::size_t MillisecondDigits = 3;

/// The stamp of a moment with zeros in place of the milliseconds.
LONG FormatSecond(const SYSTEMTIME& moment, utility::wstring& text)
{
    text.clear();
    unsigned short date[logging::MaxDateUnits];
    if (GetDateFormatW(LOCALE_SYSTEM_DEFAULT, 0, &moment, nullptr, platform::Wide(date), logging::MaxDateUnits) == 0)
        return LastErrorCode();
    unsigned short time[MaxTimeUnits];
    if (GetTimeFormatW(LOCALE_SYSTEM_DEFAULT, 0, &moment, platform::Wide(u"HH':'mm':'ss"_w), platform::Wide(time),
                       MaxTimeUnits) == 0)
        return LastErrorCode();
    text += date;
    text += u' ';
    text += time;
    text += u'.';
    text.append(MillisecondDigits, u'0');
    return 0;
}

void PutMilliseconds(unsigned short* digits, unsigned milliseconds)
{
    for (std::size_t i = MillisecondDigits; i-- > 0; milliseconds /= 10)
        digits[i] = static_cast<unsigned short>(u'0' + milliseconds % 10);
}

}  // namespace

LONG logging::TimeStamp::Update(utility::wstring& text)
{
    static_assert(sizeof(Second) == offsetof(SYSTEMTIME, wMilliseconds));
    SYSTEMTIME now;
    GetLocalTime(&now);
    // An empty text at the same address belongs to a later log, at the place of an earlier one.
    NewSecond = ShownIn != &text || text.empty() || std::memcmp(&Shown, &now, sizeof Shown) != 0;
    if (NewSecond) {
        // A failure leaves an incomplete text.
        ShownIn = nullptr;
        if (const LONG code = FormatSecond(now, text); code < 0)
            return code;
        std::memcpy(&Shown, &now, sizeof Shown);
        ShownIn = &text;
    }
    PutMilliseconds(text.data() + text.size() - MillisecondDigits, now.wMilliseconds);
    return 0;
}
