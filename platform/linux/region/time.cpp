// The local time, and dates and times as text. A format picture is processed run by run: a run of the same picture
// letter is a field; text in single quotation marks and all other units are literal text.
#include "base/last_error.h"
#include "region/short_date.h"
#include "tessmaru/text.h"
#include "text/unit_writer.h"

#include <chrono>
#include <climits>
#include <ctime>

namespace {

using namespace utility::literals;
using layer::UnitWriter;

/// The local time at the start of a minute. The conversion to local time is expensive, so each thread does it once per
/// minute only. The time stamp of a log record then costs one reading of the clock.
struct LocalMinute {
    std::time_t Start;  // 0 if there is none yet
    std::tm Parts;
};
thread_local LocalMinute currentMinute{};

/// @return false if the time has no representation as a date
bool ComputeMinute(std::time_t start, LocalMinute& minute)
{
    tzset();  // `localtime_r` need not notice a change of the time zone
    minute.Start = start;
    return localtime_r(&start, &minute.Parts) != nullptr;
}

std::chrono::year_month_day DateOf(const SYSTEMTIME& time)
{
    return std::chrono::year(time.wYear) / time.wMonth / time.wDay;
}

std::string_view DayName(const SYSTEMTIME& time)
{
    static constexpr std::string_view names[] = {"Sunday",   "Monday", "Tuesday", "Wednesday",
                                                 "Thursday", "Friday", "Saturday"};
    // As in Win32, the day of the week is computed from the date; the caller's field is ignored.
    return names[std::chrono::weekday(std::chrono::sys_days(DateOf(time))).c_encoding()];
}

std::string_view MonthName(const SYSTEMTIME& time)
{
    static constexpr std::string_view names[] = {"January", "February", "March",     "April",   "May",      "June",
                                                 "July",    "August",   "September", "October", "November", "December"};
    return names[time.wMonth - 1];
}

/// Writes a number with leading zeros. @param digits the smallest number of digits
void PutNumber(UnitWriter& out, unsigned number, unsigned digits)
{
    unsigned divisor = 1;
    for (unsigned count = 1; count < digits || number / divisor >= 10; ++count)
        divisor *= 10;
    for (; divisor != 0; divisor /= 10)
        out.Put(static_cast<WCHAR>('0' + number / divisor % 10));
}

constexpr std::size_t ShortNameUnits = 3;

/// One or two picture letters mean the number, three the short name, more the full name.
void PutNameOrNumber(UnitWriter& out, std::size_t run, unsigned number, std::string_view name)
{
    if (run < 3)
        PutNumber(out, number, static_cast<unsigned>(run));
    else
        out.Put(run == 3 ? name.substr(0, ShortNameUnits) : name);
}

/// Writes one field of a date. @return false if `letter` is not a picture letter of dates
bool PutDateField(UnitWriter& out, const SYSTEMTIME& time, WCHAR letter, std::size_t run)
{
    switch (letter) {
        case 'd': PutNameOrNumber(out, run, time.wDay, DayName(time)); return true;
        case 'M': PutNameOrNumber(out, run, time.wMonth, MonthName(time)); return true;
        case 'y':
            if (run < 3)
                PutNumber(out, time.wYear % 100U, static_cast<unsigned>(run));
            else
                PutNumber(out, time.wYear, 4);
            return true;
        case 'g': return true;  // the era, which is empty: the calendar has only one
        default: return false;
    }
}

/// Writes one field of a time. @return false if `letter` is not a picture letter of times
bool PutTimeField(UnitWriter& out, const SYSTEMTIME& time, WCHAR letter, std::size_t run)
{
    const unsigned digits = run < 2 ? 1 : 2;
    switch (letter) {
        case 'h': PutNumber(out, (time.wHour + 11U) % 12 + 1, digits); return true;
        case 'H': PutNumber(out, time.wHour, digits); return true;
        case 'm': PutNumber(out, time.wMinute, digits); return true;
        case 's': PutNumber(out, time.wSecond, digits); return true;
        case 't': out.Put(std::string_view(time.wHour < 12 ? "AM" : "PM").substr(0, digits)); return true;
        default: return false;
    }
}

/// Writes quoted text, in which two quotation marks mean one. @return the position after the closing quotation mark
const WCHAR* PutQuoted(UnitWriter& out, const WCHAR* at)
{
    for (; *at != 0; ++at) {
        if (*at == '\'' && *++at != '\'')
            return at;
        out.Put(*at);
    }
    return at;
}

/// Writes a date or a time as its picture defines it. @param putField PutDateField or PutTimeField
template <class PutField>
void PutPicture(UnitWriter& out, const WCHAR* picture, const SYSTEMTIME& time, PutField putField)
{
    while (*picture != 0 && !out.overrun()) {
        if (*picture == '\'') {
            picture = PutQuoted(out, picture + 1);
            continue;
        }
        const WCHAR letter = *picture;
        std::size_t run = 1;
        while (picture[run] == letter)
            ++run;
        if (!putField(out, time, letter, run))
            out.Fill(letter, run);
        picture += run;
    }
}

/// Whether the date exists and lies in the range of Win32.
bool IsDate(const SYSTEMTIME& time)
{
    // std::chrono stores a month and a day in one byte each, so larger numbers have to be excluded first.
    return time.wYear >= 1601 && time.wYear <= 30827 && time.wMonth <= 12 && time.wDay <= 31 && DateOf(time).ok();
}

bool IsTime(const SYSTEMTIME& time)
{
    return time.wHour < 24 && time.wMinute < 60 && time.wSecond < 60 && time.wMilliseconds < 1000;
}

/// Formats into the caller's buffer, or measures the result if `size` is 0.
/// @return the units with the terminator, 0 with ERROR_INSUFFICIENT_BUFFER if they do not fit
template <class PutField>
int FormatPicture(const WCHAR* picture, const SYSTEMTIME& time, WCHAR* buffer, int size, PutField putField)
{
    const std::size_t most = size == 0 ? INT_MAX - 1 : static_cast<std::size_t>(size) - 1;
    UnitWriter out(size == 0 ? nullptr : buffer, most);
    PutPicture(out, picture, time, putField);
    if (out.overrun())
        return layer::Fail(ERROR_INSUFFICIENT_BUFFER, 0);
    if (size != 0)
        buffer[out.used()] = 0;
    return static_cast<int>(out.used() + 1);
}

/// The caller's time, or the current one if there is none.
SYSTEMTIME TimeOrNow(const SYSTEMTIME* time)
{
    if (time != nullptr)
        return *time;
    SYSTEMTIME now;
    GetLocalTime(&now);
    return now;
}

DWORD CheckArguments(DWORD flags, const WCHAR* buffer, int size)
{
    if (size < 0 || (size > 0 && buffer == nullptr))
        return ERROR_INVALID_PARAMETER;
    return flags != 0 ? ERROR_INVALID_FLAGS : ERROR_SUCCESS;
}

}  // namespace

void GetLocalTime(SYSTEMTIME* time)
{
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    // The remainder is made positive, as it is negative for times before 1970.
    const std::time_t start = now.tv_sec - (now.tv_sec % 60 + 60) % 60;
    LocalMinute minute = currentMinute;
    if (minute.Start != start || start == 0) {
        if (!ComputeMinute(start, minute)) {
            *time = SYSTEMTIME{};
            return;
        }
        // In a zone whose offset is not a whole number of minutes a local minute does not start with one of UTC. The
        // time is then converted at each call.
        if (minute.Parts.tm_sec == 0)
            currentMinute = minute;
        else if (localtime_r(&now.tv_sec, &minute.Parts) != nullptr)
            minute.Start = now.tv_sec;
    }
    const auto seconds = minute.Parts.tm_sec + static_cast<int>(now.tv_sec - minute.Start);
    const auto word = [](long value) { return static_cast<WORD>(value); };
    *time = {.wYear = word(minute.Parts.tm_year + 1900),
             .wMonth = word(minute.Parts.tm_mon + 1),
             .wDayOfWeek = word(minute.Parts.tm_wday),
             .wDay = word(minute.Parts.tm_mday),
             .wHour = word(minute.Parts.tm_hour),
             .wMinute = word(minute.Parts.tm_min),
             .wSecond = word(seconds > 59 ? 59 : seconds),  // Win32 has no leap seconds
             .wMilliseconds = word(now.tv_nsec / 1000000)};
}

int GetDateFormatW(LCID, DWORD flags, const SYSTEMTIME* time, LPCWSTR picture, LPWSTR buffer, int size)
{
    if (const DWORD error = CheckArguments(flags, buffer, size); error != ERROR_SUCCESS)
        return layer::Fail(error, 0);
    const SYSTEMTIME date = TimeOrNow(time);
    if (!IsDate(date))
        return layer::Fail(ERROR_INVALID_PARAMETER, 0);
    if (picture != nullptr)
        return FormatPicture(picture, date, buffer, size, PutDateField);
    const layer::DatePicture shortDate = layer::ShortDatePicture();
    return FormatPicture(shortDate.data(), date, buffer, size, PutDateField);
}

int GetTimeFormatW(LCID, DWORD flags, const SYSTEMTIME* time, LPCWSTR picture, LPWSTR buffer, int size)
{
    if (const DWORD error = CheckArguments(flags, buffer, size); error != ERROR_SUCCESS)
        return layer::Fail(error, 0);
    const SYSTEMTIME clock = TimeOrNow(time);
    if (!IsTime(clock))
        return layer::Fail(ERROR_INVALID_PARAMETER, 0);
    return FormatPicture(picture != nullptr ? picture : u"HH:mm:ss"_w, clock, buffer, size, PutTimeField);
}
