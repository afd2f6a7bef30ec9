// The local time, and dates and times as text. A picture is worked through run by run: a run of one picture
// letter is a field, text in single quotation marks and everything else stands for itself.
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

/// The local time at the start of a minute. The time zone is worked out once a minute and thread: a record's
/// time stamp costs reading the clock.
struct Minute {
    std::time_t Start;  // 0: none yet
    std::tm Parts;
};
thread_local Minute currentMinute{};

/// False if the clock shows a time that has no date.
bool FindMinute(std::time_t start, Minute& minute)
{
    tzset();  // a time zone that was changed shows
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
    // The day of the week follows from the date; the field of the caller is not used, as on the platform.
    return names[std::chrono::weekday(std::chrono::sys_days(DateOf(time))).c_encoding()];
}

std::string_view MonthName(const SYSTEMTIME& time)
{
    static constexpr std::string_view names[] = {"January", "February", "March",     "April",   "May",      "June",
                                                 "July",    "August",   "September", "October", "November", "December"};
    return names[time.wMonth - 1];
}

void PutNumber(UnitWriter& out, unsigned number, unsigned digits)
{
    unsigned divisor = 1;
    for (unsigned count = 1; count < digits || number / divisor >= 10; ++count)
        divisor *= 10;
    for (; divisor != 0; divisor /= 10)
        out.Put(static_cast<WCHAR>('0' + number / divisor % 10));
}

constexpr std::size_t ShortNameUnits = 3;

/// A run of 1 or 2 letters is a number, of 3 a short name, of more the name.
void PutNameOrNumber(UnitWriter& out, std::size_t run, unsigned number, std::string_view name)
{
    if (run < 3)
        PutNumber(out, number, static_cast<unsigned>(run));
    else
        out.Put(run == 3 ? name.substr(0, ShortNameUnits) : name);
}

/// Puts one field. False if the letter is none of a date's.
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
        case 'g': return true;  // the era: the calendar has one only
        default: return false;
    }
}

/// Puts one field. False if the letter is none of a time's.
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

/// Puts quoted text, in which two quotation marks are one. @return what stands behind it.
const WCHAR* PutQuoted(UnitWriter& out, const WCHAR* at)
{
    for (; *at != 0; ++at) {
        if (*at == '\'' && *++at != '\'')
            return at;
        out.Put(*at);
    }
    return at;
}

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

bool IsDate(const SYSTEMTIME& time)
{
    // std::chrono keeps one byte of a month and of a day, so larger numbers are excluded first.
    return time.wYear >= 1601 && time.wYear <= 30827 && time.wMonth <= 12 && time.wDay <= 31 && DateOf(time).ok();
}

bool IsTime(const SYSTEMTIME& time)
{
    return time.wHour < 24 && time.wMinute < 60 && time.wSecond < 60 && time.wMilliseconds < 1000;
}

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

/// The given time, or the present one.
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
    const std::time_t start = now.tv_sec - (now.tv_sec % 60 + 60) % 60;
    Minute minute = currentMinute;
    if (minute.Start != start || start == 0) {
        if (!FindMinute(start, minute)) {
            *time = SYSTEMTIME{};
            return;
        }
        // A zone whose minutes begin elsewhere is worked out each time.
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
             .wSecond = word(seconds > 59 ? 59 : seconds),  // the platform knows no leap second
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
