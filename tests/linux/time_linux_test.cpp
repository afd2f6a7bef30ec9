// Dates and times as text, the machine's short date, and the local time.
#include "child.h"
#include "region/short_date.h"
#include "support.h"
#include "without_files.h"

#include <algorithm>
#include <chrono>
#include <ctime>
#include <gtest/gtest.h>
#include <vector>

namespace {

using support::Narrow;
using support::Wide;

constexpr SYSTEMTIME Afternoon{2026, 3, 0, 7, 15, 4, 9, 250};

using Formatter = int (*)(LCID, DWORD, const SYSTEMTIME*, LPCWSTR, LPWSTR, int);

std::string Print(Formatter format, const SYSTEMTIME& time, const char* picture)
{
    unsigned short buffer[128]{};
    const utility::wstring wide = picture != nullptr ? Wide(picture) : utility::wstring();
    const int units = format(LOCALE_SYSTEM_DEFAULT, 0, &time, picture != nullptr ? wide.c_str() : nullptr, buffer, 128);
    EXPECT_EQ(units, format(LOCALE_SYSTEM_DEFAULT, 0, &time, picture != nullptr ? wide.c_str() : nullptr, nullptr, 0));
    return units > 0 ? Narrow({buffer, static_cast<std::size_t>(units) - 1}) : "failed";
}

TEST(TimeOnLinux, WhereSystemsDiffer)
{
    EXPECT_EQ("15:04:09", Print(GetTimeFormatW, Afternoon, nullptr));
    EXPECT_EQ("26  2026", Print(GetDateFormatW, Afternoon, "y gg yyy")) << "an era has no name here";
    unsigned short buffer[32];
    for (const SYSTEMTIME& none : {SYSTEMTIME{30828, 1, 0, 1, 0, 0, 0, 0}, SYSTEMTIME{2026, 2, 0, 29, 0, 0, 0, 0},
                                   SYSTEMTIME{1900, 2, 0, 29, 0, 0, 0, 0}})
        EXPECT_EQ(0, GetDateFormatW(LOCALE_SYSTEM_DEFAULT, 0, &none, nullptr, buffer, 32));
    EXPECT_EQ(ERROR_INVALID_PARAMETER, GetLastError());
    EXPECT_EQ(0, GetDateFormatW(LOCALE_SYSTEM_DEFAULT, 0x40000000, &Afternoon, nullptr, buffer, 32));
    EXPECT_EQ(ERROR_INVALID_FLAGS, GetLastError());
}

/// The short date of a process that starts with this picture in the store, compared in that process.
int ShortDateIs(const std::string& picture, const std::string& expected)
{
    support::Machine machine;
    machine.SetRegistry("[HKEY_USERS\\.DEFAULT\\Control Panel\\International]\r\n\"sShortDate\"=\"" + picture +
                        "\"\r\n");
    return support::Child([&] {
               const std::string first = Print(GetDateFormatW, Afternoon, nullptr);
               machine.SetRegistry("");  // read once: a change shows in the next process
               return first == expected && Print(GetDateFormatW, Afternoon, nullptr) == expected ? 0 : 1;
           })
        .Wait();
}

TEST(TimeOnLinux, TheShortDateIsTheMachines)
{
    EXPECT_EQ(0, ShortDateIs("dd.MM.yyyy", "07.03.2026"));
    EXPECT_EQ(0, ShortDateIs("M/d/yyyy", "3/7/2026"));
    EXPECT_EQ(0, ShortDateIs("dddd, d MMMM yyyy", "Saturday, 7 March 2026"));
    EXPECT_EQ(0, ShortDateIs(std::string(80, '-'), std::string(80, '-')));
    // Beyond the platform's limit it counts as missing.
    EXPECT_NE(0, ShortDateIs(std::string(81, '-'), std::string(81, '-')));
}

TEST(TimeOnLinux, AFailedReadOfTheShortDateIsTriedAgain)
{
    support::Machine machine;
    machine.SetRegistry("[HKEY_USERS\\.DEFAULT\\Control Panel\\International]\r\n\"sShortDate\"=\"dd.MM.yyyy\"\r\n");
    EXPECT_EQ(0, support::Child([] {
                     const std::string without =
                         support::WithoutFiles([] { return Print(GetDateFormatW, Afternoon, nullptr); });
                     const std::string with = Print(GetDateFormatW, Afternoon, nullptr);
                     return without == "2026-03-07" && with == "07.03.2026" ? 0 : 1;
                 }).Wait());
}

TEST(TimeOnLinux, ALongShortDateDoesNotFitTheLogsRoom)
{
    support::Machine machine;
    machine.SetRegistry(
        "[HKEY_USERS\\.DEFAULT\\Control Panel\\International]\r\n\"sShortDate\"=\"dddd, d MMMM yyyy\"\r\n");
    EXPECT_EQ(0, support::Child([] {
                     unsigned short buffer[20];
                     return GetDateFormatW(LOCALE_SYSTEM_DEFAULT, 0, &Afternoon, nullptr, buffer, 20) == 0 &&
                                    GetLastError() == ERROR_INSUFFICIENT_BUFFER
                                ? 0
                                : 1;
                 }).Wait());
}

TEST(TimeOnLinux, LocaleFiles)
{
    const struct {
        const char* File;
        const char* Name;
    } rows[] = {{"LANG=de_DE.UTF-8\n", "de_DE.UTF-8"},
                {"# made by setup\nLC_TIME=\"en_GB.UTF-8\"\nLANG=de_DE\n", "en_GB.UTF-8"},
                {"LANG='fr_FR'  # comment", "fr_FR"},
                {"LANG=a\nLANG=b\r\n", "b"},
                {"LC_TIME=\nLANG=C", "C"},
                {"#LANG=de_DE\nXLANG=de_DE\nLANGUAGE=de", ""},
                {"", ""}};
    for (const auto& row : rows)
        EXPECT_EQ(row.Name, layer::TimeLocaleOf(row.File)) << row.File;
}

TEST(TimeOnLinux, LocalePictures)
{
    const struct {
        const char* Locale;
        const char* Picture;
    } rows[] = {{"%d.%m.%Y", "dd.MM.yyyy"},
                {"%m/%d/%y", "MM/dd/yy"},
                {"%-d/%-m/%Y", "d/M/yyyy"},
                {"%F", "yyyy-MM-dd"},
                {"%a %e %b %y", "ddd d MMM yy"},
                {"%d de %m", "dd 'de' MM"},
                {"d'%d", "'d'''dd"},
                {"%d\xC3\xA4%m", "dd?MM"},
                {"%Ey", nullptr},
                {"%d%", nullptr},
                {"%-", nullptr},
                {"\xFF", nullptr},
                {"", nullptr}};
    for (const auto& row : rows) {
        layer::DatePicture picture;
        ASSERT_EQ(row.Picture != nullptr, layer::TranslateDatePicture(row.Locale, picture)) << row.Locale;
        if (row.Picture != nullptr) {
            EXPECT_EQ(row.Picture, Narrow(picture.data()));
        }
    }
    layer::DatePicture picture;
    EXPECT_TRUE(layer::TranslateDatePicture(std::string(80, '-').c_str(), picture));
    EXPECT_FALSE(layer::TranslateDatePicture(std::string(81, '-').c_str(), picture));
}

/// By the clock itself: `time` lags behind it by up to a tick of the kernel.
std::time_t Now()
{
    return std::chrono::system_clock::to_time_t(std::chrono::system_clock::now());
}

/// Whether the local time agrees with the C library's, in a process that starts in this zone.
int LocalTimeAgrees()
{
    for (int i = 0; i < 3; ++i) {
        const std::time_t before = Now();
        SYSTEMTIME time{};
        GetLocalTime(&time);
        const std::time_t after = Now();
        bool agrees = false;
        for (std::time_t at = before; at <= after; ++at) {
            std::tm parts{};
            localtime_r(&at, &parts);
            agrees |= time.wYear == parts.tm_year + 1900 && time.wMonth == parts.tm_mon + 1 &&
                      time.wDay == parts.tm_mday && time.wDayOfWeek == parts.tm_wday && time.wHour == parts.tm_hour &&
                      time.wMinute == parts.tm_min && time.wSecond == parts.tm_sec && time.wMilliseconds < 1000;
        }
        if (!agrees)
            return 1;
    }
    return 0;
}

TEST(TimeOnLinux, LocalTimeFollowsTheZone)
{
    for (const char* const zone : {"UTC", "<+0545>-5:45", "<-11>11", "<LMT>-1:02:03"}) {
        const support::Variable variable("TZ", zone);
        EXPECT_EQ(0, support::Child(LocalTimeAgrees).Wait()) << zone;
    }
}

}  // namespace
