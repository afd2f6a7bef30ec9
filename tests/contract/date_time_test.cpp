// Contract of dates and times as text.
#include "system.h"
#include "testkit/text.h"

#include <algorithm>
#include <chrono>
#include <ctime>
#include <gtest/gtest.h>
#include <vector>

namespace {

using testkit::Narrow;
using testkit::Wide;

constexpr unsigned short Guard = 0xBEEF;
constexpr SYSTEMTIME Afternoon{2026, 3, 0, 7, 15, 4, 9, 250};

/// The language of the names of days and months.
constexpr LCID English = 0x409;

using Formatter = decltype(&GetDateFormatW);

std::string Print(Formatter format, const SYSTEMTIME& time, const char* pattern)
{
    unsigned short buffer[128]{};
    const utility::wstring wide = Wide(pattern);
    const int units = format(English, 0, &time, platform::Wide(wide.c_str()), platform::Wide(buffer), 128);
    EXPECT_EQ(units, format(English, 0, &time, platform::Wide(wide.c_str()), nullptr, 0));
    return units > 0 ? Narrow({buffer, static_cast<std::size_t>(units) - 1}) : "failed";
}

TEST(Time, DatePatterns)
{
    const struct {
        const char* Pattern;
        const char* Expected;
    } rows[] = {
        {"d/M/y", "7/3/26"},
        {"dd.MM.yyyy", "07.03.2026"},
        {"yyyy-MM-dd", "2026-03-07"},
        {"ddd d MMM yy", "Sat 7 Mar 26"},
        {"dddd, d MMMM yyyy", "Saturday, 7 March 2026"},
        {"yyy", "2026"},
        {"'day' d", "day 7"},
        {"''d", "7"},
        {"d''''M", "7'3"},
        {"'o''clock'", "o'clock"},
        {"'open d", "open d"},
        {"h:m", "h:m"},
        {"", ""},
        {"'", ""},
    };
    for (const auto& row : rows)
        EXPECT_EQ(row.Expected, Print(GetDateFormatW, Afternoon, row.Pattern)) << row.Pattern;
    EXPECT_EQ("05 2005", Print(GetDateFormatW, {2005, 1, 0, 1, 0, 0, 0, 0}, "yy yyyy"));
}

TEST(Time, DayOfTheWeekFollowsFromTheDate)
{
    const struct {
        SYSTEMTIME Date;
        const char* Day;
    } rows[] = {{{1970, 1, 0, 1, 0, 0, 0, 0}, "Thursday"},
                {{2000, 2, 0, 29, 0, 0, 0, 0}, "Tuesday"},
                {{2024, 12, 0, 31, 0, 0, 0, 0}, "Tuesday"},
                {{1601, 1, 0, 1, 0, 0, 0, 0}, "Monday"},
                {{2100, 3, 5, 1, 0, 0, 0, 0}, "Monday"}};
    for (const auto& row : rows)
        EXPECT_EQ(row.Day, Print(GetDateFormatW, row.Date, "dddd"));
}

TEST(Time, TimePatterns)
{
    const struct {
        const char* Pattern;
        const char* Expected;
    } rows[] = {
        {"HH':'mm':'ss", "15:04:09"}, {"H:m:s", "15:4:9"}, {"h:mm tt", "3:04 PM"}, {"hh t", "03 P"},
        {"HHH mmm", "15 04"},         {"d.M", "d.M"},
    };
    for (const auto& row : rows)
        EXPECT_EQ(row.Expected, Print(GetTimeFormatW, Afternoon, row.Pattern));
    EXPECT_EQ("12 AM 0", Print(GetTimeFormatW, {2026, 1, 0, 1, 0, 0, 0, 0}, "h tt H"));
    EXPECT_EQ("12 PM 12", Print(GetTimeFormatW, {2026, 1, 0, 1, 12, 0, 0, 0}, "h tt H"));
    EXPECT_EQ("11 PM 23", Print(GetTimeFormatW, {2026, 1, 0, 1, 23, 0, 0, 0}, "h tt H"));
}

TEST(Time, SizeOfTheBufferAndTerminator)
{
    const utility::wstring pattern = Wide("dd.MM.yyyy");
    for (int size = 1; size <= 13; ++size) {
        std::vector<unsigned short> buffer(16, Guard);
        SetLastError(0);
        const int result =
            GetDateFormatW(0, 0, &Afternoon, platform::Wide(pattern.c_str()), platform::Wide(buffer.data()), size);
        EXPECT_EQ(size < 11 ? 0 : 11, result) << size;
        EXPECT_EQ(size < 11 ? ERROR_INSUFFICIENT_BUFFER : 0, GetLastError());
        EXPECT_EQ(Guard, buffer[static_cast<std::size_t>(size)]);
        if (result != 0) {
            EXPECT_EQ(0, buffer[10]);
        }
    }
}

TEST(Time, InvalidTimesAreRefused)
{
    unsigned short buffer[32];
    const auto refusal = [&](Formatter format, const SYSTEMTIME& time, int size = 32) {
        SetLastError(0);
        EXPECT_EQ(
            0, format(LOCALE_SYSTEM_DEFAULT, 0, &time, nullptr, size == 32 ? platform::Wide(buffer) : nullptr, size));
        return GetLastError();
    };
    const struct {
        Formatter Format;
        SYSTEMTIME Time;
    } rows[] = {{GetDateFormatW, {1600, 1, 0, 1, 0, 0, 0, 0}},   {GetDateFormatW, {2026, 0, 0, 1, 0, 0, 0, 0}},
                {GetDateFormatW, {2026, 13, 0, 1, 0, 0, 0, 0}},  {GetDateFormatW, {2026, 1, 0, 0, 0, 0, 0, 0}},
                {GetDateFormatW, {2026, 4, 0, 31, 0, 0, 0, 0}},  {GetTimeFormatW, {2026, 1, 0, 1, 24, 0, 0, 0}},
                {GetTimeFormatW, {2026, 1, 0, 1, 0, 60, 0, 0}},  {GetTimeFormatW, {2026, 1, 0, 1, 0, 0, 60, 0}},
                {GetTimeFormatW, {2026, 1, 0, 1, 0, 0, 0, 1000}}};
    for (const auto& row : rows)
        EXPECT_EQ(ERROR_INVALID_PARAMETER, refusal(row.Format, row.Time)) << &row - rows;
    for (const Formatter format : {GetDateFormatW, GetTimeFormatW}) {
        EXPECT_EQ(ERROR_INVALID_PARAMETER, refusal(format, Afternoon, -1));
        EXPECT_EQ(ERROR_INVALID_PARAMETER, refusal(format, Afternoon, 31));
    }
}

TEST(Time, NullMeansNow)
{
    unsigned short buffer[32];
    const utility::wstring pattern = Wide("yyyy-MM-dd");
    // The clock itself: `time` may be late by a tick.
    const auto now = [] { return std::chrono::system_clock::to_time_t(std::chrono::system_clock::now()); };
    const std::time_t before = now();
    ASSERT_EQ(11, GetDateFormatW(LOCALE_SYSTEM_DEFAULT, 0, nullptr, platform::Wide(pattern.c_str()),
                                 platform::Wide(buffer), 32));
    const auto dateAt = [](std::time_t at) {
        char text[16];
        return std::string(text, std::strftime(text, sizeof text, "%Y-%m-%d", std::localtime(&at)));
    };
    const std::string printed = Narrow(buffer);
    EXPECT_TRUE(printed == dateAt(before) || printed == dateAt(now())) << printed;
}

}  // namespace
