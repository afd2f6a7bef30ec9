// Calendar arithmetic of the records' times.
#include "records/civil_time.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <chrono>
#include <cstdio>
#include <ctime>

namespace records {
namespace {

constexpr std::int64_t MillisecondsOfDay = 86'400'000;

std::optional<std::int64_t> DaysOf(int year, unsigned month, unsigned day)
{
    if (month < 1 || month > 12 || day < 1 || day > 31)
        return std::nullopt;
    const std::chrono::year_month_day date{std::chrono::year(year), std::chrono::month(month), std::chrono::day(day)};
    if (!date.ok())
        return std::nullopt;
    return std::chrono::sys_days(date).time_since_epoch().count();
}

bool IsDigit(char16_t unit)
{
    return unit >= u'0' && unit <= u'9';
}

/// Takes a number of `least` to `most` digits off the front of `text`.
std::optional<int> TakeNumber(std::u16string_view& text, unsigned least, unsigned most)
{
    unsigned digits = 0;
    int number = 0;
    while (digits < most && digits < text.size() && IsDigit(text[digits]))
        number = number * 10 + (text[digits++] - u'0');
    if (digits < least)
        return std::nullopt;
    text.remove_prefix(digits);
    return number;
}

/// The year of two digits that is meant: 1950 to 2049, as on the suite's own platform.
int FullYear(int year)
{
    return year < 50 ? 2000 + year : 1900 + year;
}

std::optional<CivilTime> ReadSpan(std::string_view text, CivilTime now)
{
    std::int64_t count = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), count);
    constexpr std::int64_t most = 1'000'000;
    if (error != std::errc() || end + 1 != text.data() + text.size() || count < 0 || count > most)
        return std::nullopt;
    switch (*end) {
        case 's': return now - count * 1000;
        case 'm': return now - count * 60'000;
        case 'h': return now - count * 3'600'000;
        case 'd': return now - count * MillisecondsOfDay;
        default: return std::nullopt;
    }
}

}  // namespace

std::optional<DatePattern> DatePattern::Read(std::string_view pattern)
{
    DatePattern result;
    result.Text = pattern;
    std::string units;
    bool isQuoted = false;
    for (std::size_t i = 0; i < pattern.size();) {
        const char letter = pattern[i];
        const std::size_t end = std::min(pattern.find_first_not_of(letter, i), pattern.size());
        if (letter == '\'') {
            isQuoted = !isQuoted;
            ++i;
        } else if (!isQuoted && (letter == 'd' || letter == 'M' || letter == 'y')) {
            result.Parts.push_back({letter, static_cast<unsigned>(end - i), 0});
            units += letter;
            i = end;
        } else {
            result.Parts.push_back({0, 1, static_cast<char16_t>(static_cast<unsigned char>(letter))});
            ++i;
        }
    }
    std::sort(units.begin(), units.end());
    const bool hasNames = std::any_of(result.Parts.begin(), result.Parts.end(),
                                      [](const Part& part) { return part.Width > 2 && part.Unit != 'y' && part.Unit; });
    return units == "Mdy" && !hasNames ? std::optional(result) : std::nullopt;
}

std::optional<DatePattern> DatePattern::Guess(std::u16string_view date)
{
    static constexpr std::array<const char*, 10> common = {"yyyy-MM-dd", "dd/MM/yyyy", "MM/dd/yyyy", "dd.MM.yyyy",
                                                           "yyyy/MM/dd", "dd-MM-yyyy", "dd/MM/yy",   "MM/dd/yy",
                                                           "dd.MM.yy",   "yyyy.MM.dd"};
    for (const char* each : common) {
        if (auto pattern = Read(each); pattern->Days(date))
            return pattern;
    }
    return std::nullopt;
}

std::optional<std::int64_t> DatePattern::Days(std::u16string_view date) const
{
    int year = 0;
    unsigned month = 0;
    unsigned day = 0;
    for (const Part& part : Parts) {
        if (part.Unit == 0) {
            if (date.empty() || date.front() != part.Letter)
                return std::nullopt;
            date.remove_prefix(1);
            continue;
        }
        const bool isLongYear = part.Unit == 'y' && part.Width > 2;
        const auto number = TakeNumber(date, isLongYear ? 4 : 1, isLongYear ? 4 : 2);
        if (!number)
            return std::nullopt;
        if (part.Unit == 'y')
            year = isLongYear ? *number : FullYear(*number);
        else
            (part.Unit == 'M' ? month : day) = static_cast<unsigned>(*number);
    }
    return date.empty() ? DaysOf(year, month, day) : std::nullopt;
}

std::int64_t MillisecondsOf(std::u16string_view timeOfDay)
{
    const auto number = [&](std::size_t place, std::size_t digits) {
        std::int64_t value = 0;
        for (std::size_t i = place; i < place + digits && i < timeOfDay.size(); ++i)
            value = value * 10 + (timeOfDay[i] - u'0');
        return value;
    };
    return ((number(0, 2) * 60 + number(3, 2)) * 60 + number(6, 2)) * 1000 + number(9, 3);
}

std::optional<CivilTime> ReadTime(std::string_view text, CivilTime now)
{
    if (const auto span = ReadSpan(text, now))
        return span;
    int year = 0;
    unsigned month = 0;
    unsigned day = 0;
    unsigned hour = 0;
    unsigned minute = 0;
    unsigned second = 0;
    unsigned millisecond = 0;
    int read = 0;
    const std::string given(text);
    CivilTime midnight = now - (now % MillisecondsOfDay + MillisecondsOfDay) % MillisecondsOfDay;
    const char* rest = given.c_str();
    if (std::sscanf(rest, "%4d-%2u-%2u%n", &year, &month, &day, &read) == 3) {
        const auto days = DaysOf(year, month, day);
        if (!days)
            return std::nullopt;
        midnight = *days * MillisecondsOfDay;
        rest += read;
        if (*rest == '\0')
            return midnight;
        if (*rest != ' ' && *rest != 'T')
            return std::nullopt;
        ++rest;
    }
    const int fields =
        std::sscanf(rest, "%2u:%2u%n:%2u%n.%3u%n", &hour, &minute, &read, &second, &read, &millisecond, &read);
    if (fields < 2 || rest[read] != '\0' || hour > 23 || minute > 59 || second > 60)
        return std::nullopt;
    return midnight + ((std::int64_t{hour} * 60 + minute) * 60 + second) * 1000 + millisecond;
}

CivilTime Now()
{
    const auto now = std::chrono::system_clock::now();
    const std::time_t seconds = std::chrono::system_clock::to_time_t(now);
    std::tm local{};
    if (const std::tm* const found = std::localtime(&seconds))
        local = *found;
    const std::int64_t days =
        *DaysOf(local.tm_year + 1900, static_cast<unsigned>(local.tm_mon) + 1, static_cast<unsigned>(local.tm_mday));
    const auto fraction = std::chrono::duration_cast<std::chrono::milliseconds>(now.time_since_epoch()).count() % 1000;
    return days * MillisecondsOfDay + ((local.tm_hour * 60 + local.tm_min) * 60 + local.tm_sec) * 1000 + fraction;
}

namespace {

/// The minutes by which the local zone is ahead of UTC at a local time.
std::int64_t ZoneOffset(const std::chrono::year_month_day& date, std::int64_t minuteOfDay, std::int64_t minutes)
{
    std::tm local{};
    local.tm_year = static_cast<int>(date.year()) - 1900;
    local.tm_mon = static_cast<int>(static_cast<unsigned>(date.month())) - 1;
    local.tm_mday = static_cast<int>(static_cast<unsigned>(date.day()));
    local.tm_hour = static_cast<int>(minuteOfDay / 60);
    local.tm_min = static_cast<int>(minuteOfDay % 60);
    local.tm_isdst = -1;
    return minutes - static_cast<std::int64_t>(std::mktime(&local)) / 60;
}

void AppendDigits(std::string& out, std::int64_t number, unsigned digits)
{
    const std::size_t end = out.size() + digits;
    out.resize(end);
    for (unsigned i = 1; i <= digits; ++i, number /= 10)
        out[end - i] = static_cast<char>('0' + number % 10);
}

/// The text of one minute, in which the seconds are replaced.
struct MinuteText {
    static constexpr std::size_t SecondsPlace = 17;

    std::int64_t Minute = -1;
    std::string Text;  // "2026-11-22T09:09:00.000+01:00"

    void Set(std::int64_t minute)
    {
        constexpr std::int64_t minutesOfDay = 24 * 60;
        const std::int64_t ofDay = (minute % minutesOfDay + minutesOfDay) % minutesOfDay;
        const std::chrono::year_month_day date{
            std::chrono::sys_days(std::chrono::days((minute - ofDay) / minutesOfDay))};
        const std::int64_t zone = ZoneOffset(date, ofDay, minute);
        Minute = minute;
        Text.clear();
        AppendDigits(Text, static_cast<int>(date.year()), 4);
        AppendDigits(Text += '-', static_cast<unsigned>(date.month()), 2);
        AppendDigits(Text += '-', static_cast<unsigned>(date.day()), 2);
        AppendDigits(Text += 'T', ofDay / 60, 2);
        AppendDigits(Text += ':', ofDay % 60, 2);
        Text += ":00.000";
        Text += zone < 0 ? '-' : '+';
        AppendDigits(Text, std::abs(zone) / 60, 2);
        AppendDigits(Text += ':', std::abs(zone) % 60, 2);
    }

    void PutSeconds(unsigned milliseconds)
    {
        const unsigned seconds = milliseconds / 1000;
        const auto put = [&](std::size_t place, unsigned digit) {
            Text[SecondsPlace + place] = static_cast<char>('0' + digit % 10);
        };
        put(0, seconds / 10);
        put(1, seconds);
        put(3, milliseconds / 100);
        put(4, milliseconds / 10);
        put(5, milliseconds);
    }
};

}  // namespace

void AppendIsoTime(std::string& out, CivilTime time)
{
    // Many records have the same minute, and the look-up of the zone takes longer than all the rest of a record.
    thread_local MinuteText text;
    const std::int64_t inMinute = (time % 60'000 + 60'000) % 60'000;
    if (const std::int64_t minute = (time - inMinute) / 60'000; minute != text.Minute)
        text.Set(minute);
    text.PutSeconds(static_cast<unsigned>(inMinute));
    out += text.Text;
}

}  // namespace records
