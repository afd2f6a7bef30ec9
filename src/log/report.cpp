// Writes the reports of the log to debug output. A report that needs memory that is not there is dropped.
#include "log/report.h"

#include "log/time_stamp.h"
#include "settings/tag_specification.h"
#include "system.h"
#include "tessmaru/errors.h"

#include <chrono>
#include <new>

using namespace utility::literals;
using utility::wstring;

namespace {

/// Whether the short date of this day fits a time stamp.
bool Fits(const SYSTEMTIME& day)
{
    unsigned short date[logging::MaxDateUnits];
    return GetDateFormatW(LOCALE_SYSTEM_DEFAULT, 0, &day, nullptr, platform::Wide(date), logging::MaxDateUnits) != 0;
}

SYSTEMTIME DayOf(std::chrono::sys_days day)
{
    const std::chrono::year_month_day date(day);
    SYSTEMTIME time{};
    time.wYear = static_cast<WORD>(static_cast<int>(date.year()));
    time.wMonth = static_cast<WORD>(static_cast<unsigned>(date.month()));
    time.wDay = static_cast<WORD>(static_cast<unsigned>(date.day()));
    return time;
}

}  // namespace

namespace logging {

void ReportFailure(const unsigned short* reason, const wstring& subject, LONG code) noexcept
{
    try {
        wstring text = u"CLOG - Log not opened: "_w;
        text += reason;
        text += subject;
        text += u": "_w;
        text += utility::genHResultAsString(code);
        text += u'\n';
        OutputDebugStringW(platform::Wide(text.c_str()));
    } catch (const std::bad_alloc&) {
        return;
    }
}

void ReportLongDates() noexcept
{
    // 400 days are long enough for every day and month, and for each name of a weekday in each month.
    constexpr std::chrono::days period(400);
    const auto first = std::chrono::sys_days(std::chrono::year(2024) / 1 / 1);
    for (auto day = first; day < first + period; day += std::chrono::days(1)) {
        if (Fits(DayOf(day)))
            continue;
        OutputDebugStringW(
            platform::Wide(u"CLOG - The machine's short date is too long for a record on some days: "
                           u"their records will be lost\n"_w));
        return;
    }
}

}  // namespace logging
