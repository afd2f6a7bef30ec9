// Dates and times on Linux: the machine's short date, locales, and the local time.
#include "region/short_date.h"
#include "testkit/environment_variable.h"
#include "testkit/linux/child.h"
#include "testkit/linux/without_descriptors.h"
#include "testkit/test_machine.h"
#include "testkit/text.h"

#include <algorithm>
#include <chrono>
#include <ctime>
#include <gtest/gtest.h>
#include <thread>
#include <vector>

namespace {

using namespace std::chrono_literals;
using testkit::Narrow;
using testkit::Wide;

constexpr SYSTEMTIME Afternoon{2026, 3, 0, 7, 15, 4, 9, 250};

using Formatter = int (*)(LCID, DWORD, const SYSTEMTIME*, LPCWSTR, LPWSTR, int);

std::string Print(Formatter format, const SYSTEMTIME& time, const char* pattern)
{
    unsigned short buffer[128]{};
    const utility::wstring wide = pattern != nullptr ? Wide(pattern) : utility::wstring();
    const int units = format(LOCALE_SYSTEM_DEFAULT, 0, &time, pattern != nullptr ? wide.c_str() : nullptr, buffer, 128);
    EXPECT_EQ(units, format(LOCALE_SYSTEM_DEFAULT, 0, &time, pattern != nullptr ? wide.c_str() : nullptr, nullptr, 0));
    return units > 0 ? Narrow({buffer, static_cast<std::size_t>(units) - 1}) : "failed";
}

TEST(TimeOnLinux, ResultsThatTheContractLeavesOpen)
{
    EXPECT_EQ("15:04:09", Print(GetTimeFormatW, Afternoon, nullptr));
    EXPECT_EQ("26  2026", Print(GetDateFormatW, Afternoon, "y gg yyy")) << "an era has no name";
    unsigned short buffer[32];
    for (const SYSTEMTIME& none : {SYSTEMTIME{30828, 1, 0, 1, 0, 0, 0, 0}, SYSTEMTIME{2026, 2, 0, 29, 0, 0, 0, 0},
                                   SYSTEMTIME{1900, 2, 0, 29, 0, 0, 0, 0}})
        EXPECT_EQ(0, GetDateFormatW(LOCALE_SYSTEM_DEFAULT, 0, &none, nullptr, buffer, 32));
    EXPECT_EQ(ERROR_INVALID_PARAMETER, GetLastError());
    EXPECT_EQ(0, GetDateFormatW(LOCALE_SYSTEM_DEFAULT, 0x40000000, &Afternoon, nullptr, buffer, 32));
    EXPECT_EQ(ERROR_INVALID_FLAGS, GetLastError());
}

/// Runs `work` in a process that starts with this short date in the store. @return its exit status
template <class Work>
int WithShortDate(const std::string& pattern, Work work)
{
    const testkit::TestMachine machine;
    machine.Settings.Set("[HKEY_USERS\\.DEFAULT\\Control Panel\\International]\r\n\"sShortDate\"=\"" + pattern +
                         "\"\r\n");
    return testkit::Child([&] { return work(machine) ? 0 : 1; }).Wait();
}

TEST(TimeOnLinux, ShortDateIsASettingOfTheMachine)
{
    const struct {
        std::string Pattern;
        std::string Expected;
    } rows[] = {{"dd.MM.yyyy", "07.03.2026"},
                {"M/d/yyyy", "3/7/2026"},
                {"dddd, d MMMM yyyy", "Saturday, 7 March 2026"},
                {std::string(80, '-'), std::string(80, '-')},
                {std::string(81, '-'), "2026-03-07"}};  // longer than the platform allows, so as if it were missing
    for (const auto& row : rows) {
        EXPECT_EQ(0, WithShortDate(row.Pattern,
                                   [&row](const testkit::TestMachine& machine) {
                                       const std::string first = Print(GetDateFormatW, Afternoon, nullptr);
                                       machine.Settings.Set("");  // a change counts for the next process
                                       return first == row.Expected &&
                                              Print(GetDateFormatW, Afternoon, nullptr) == row.Expected;
                                   }))
            << row.Pattern;
    }
}

TEST(TimeOnLinux, FailedReadOfTheShortDateIsRepeated)
{
    EXPECT_EQ(0, WithShortDate("dd.MM.yyyy", [](const testkit::TestMachine&) {
                  const auto print = [] { return Print(GetDateFormatW, Afternoon, nullptr); };
                  return testkit::WithoutDescriptors(print) == "2026-03-07" && print() == "07.03.2026";
              }));
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

TEST(TimeOnLinux, LocalePatterns)
{
    const struct {
        const char* Locale;
        const char* Pattern;
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
        layer::DatePicture pattern;
        ASSERT_EQ(row.Pattern != nullptr, layer::TranslateDatePicture(row.Locale, pattern)) << row.Locale;
        if (row.Pattern != nullptr) {
            EXPECT_EQ(row.Pattern, Narrow(pattern.data()));
        }
    }
    layer::DatePicture pattern;
    EXPECT_TRUE(layer::TranslateDatePicture(std::string(80, '-').c_str(), pattern));
    EXPECT_FALSE(layer::TranslateDatePicture(std::string(81, '-').c_str(), pattern));
}

/// The clock itself: `time` is late by up to a tick of the kernel.
std::time_t Now()
{
    return std::chrono::system_clock::to_time_t(std::chrono::system_clock::now());
}

/// Compares the local time with the C library's. @return the exit status of a process that starts in this zone
int LocalTimeAgrees()
{
    const std::time_t before = Now();
    SYSTEMTIME time{};
    GetLocalTime(&time);
    const std::time_t after = Now();
    tzset();  // only now: the library itself has to notice a change
    char shown[64];
    std::snprintf(shown, sizeof shown, "%04d-%02d-%02d %d %02d:%02d:%02d", time.wYear, time.wMonth, time.wDay,
                  time.wDayOfWeek, time.wHour, time.wMinute, time.wSecond);
    for (std::time_t at = before; at <= after; ++at) {
        char expected[64];
        std::tm parts{};
        std::strftime(expected, sizeof expected, "%Y-%m-%d %w %H:%M:%S", localtime_r(&at, &parts));
        if (std::string_view(shown) == expected && time.wMilliseconds < 1000)
            return 0;
    }
    return 1;
}

TEST(TimeOnLinux, LocalTimeFollowsTheZone)
{
    for (const char* const zone : {"UTC", "<+0545>-5:45", "<-11>11", "<LMT>-1:02:03"}) {
        const testkit::EnvironmentVariable variable("TZ", zone);
        EXPECT_EQ(0, testkit::Child(LocalTimeAgrees).Wait()) << zone;
    }
}

TEST(TimeOnLinux, LocalTimeFollowsAChangeOfTheZone)
{
    const testkit::EnvironmentVariable variable("TZ", "UTC");
    EXPECT_EQ(0, testkit::Child([] {
                     SYSTEMTIME inUtc;
                     GetLocalTime(&inUtc);
                     setenv("TZ", "<+0530>-5:30", 1);
                     // The first thread may show the change up to a minute later.
                     int result = 1;
                     std::thread([&result] { result = LocalTimeAgrees(); }).join();
                     return result;
                 }).Wait());
}

TEST(TimeOnLinux, ClockCountsFromTheStartOfTheProcess)
{
    const auto before = std::chrono::steady_clock::now();
    EXPECT_EQ(0, testkit::Child([before] {
                     std::this_thread::sleep_for(200ms);
                     const auto counted = std::chrono::milliseconds(platform::Clock());
                     const auto most = std::chrono::steady_clock::now() - before + 50ms;
                     return counted >= 150ms && counted <= most ? 0 : 1;
                 }).Wait());
}

}  // namespace
