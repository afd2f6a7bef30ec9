// The check of the form of dates: a record whose date is too long is lost.
#include "settings/catalogue.h"
#include "text/wide.h"
#include "verbs/doctor/findings.h"

#include <fmt/format.h>

#include <chrono>

namespace tool {
namespace {

constexpr std::size_t MostDateUnits = 19;

constexpr std::size_t LengthsOfDays[] = {6, 6, 7, 9, 8, 6, 8};  // Sunday first
constexpr std::size_t LengthsOfMonths[] = {7, 8, 5, 5, 3, 4, 4, 6, 9, 7, 8, 8};

std::size_t NumberOrName(std::size_t run, unsigned number, std::size_t lengthOfName)
{
    if (run < 3)
        return run == 2 || number > 9 ? 2 : 1;
    return run == 3 ? 3 : lengthOfName;
}

std::size_t FieldLength(char16_t letter, std::size_t run, std::chrono::sys_days day)
{
    const std::chrono::year_month_day date(day);
    const auto month = static_cast<unsigned>(date.month());
    switch (letter) {
        case u'd':
            return NumberOrName(run, static_cast<unsigned>(date.day()),
                                LengthsOfDays[std::chrono::weekday(day).c_encoding()]);
        case u'M': return NumberOrName(run, month, LengthsOfMonths[month - 1]);
        case u'y': return run == 1 && static_cast<int>(date.year()) % 100 < 10 ? 1 : run < 3 ? 2 : 4;
        case u'g': return 0;
        default: return run;
    }
}

/// The units of quoted text that starts after `at`; `at` moves to its end. Two quotation marks mean one.
std::size_t QuotedLength(std::u16string_view pattern, std::size_t& at)
{
    std::size_t length = 0;
    for (++at; at < pattern.size(); ++at) {
        if (pattern[at] == u'\'' && (++at == pattern.size() || pattern[at] != u'\''))
            return length;
        ++length;
    }
    return length;
}

std::size_t DateLength(std::u16string_view pattern, std::chrono::sys_days day)
{
    std::size_t length = 0;
    for (std::size_t at = 0; at < pattern.size();) {
        if (pattern[at] == u'\'') {
            length += QuotedLength(pattern, at);
            continue;
        }
        const std::size_t end = std::min(pattern.find_first_not_of(pattern[at], at), pattern.size());
        length += FieldLength(pattern[at], end - at, day);
        at = end;
    }
    return length;
}

}  // namespace

void CheckDates(const Store& store, Findings& findings)
{
    const Setting& setting = FindSetting("sShortDate");
    const StoreValue* const value = store.Find(KeyOf(setting), setting.Name);
    const std::string text = value == nullptr ? std::string() : TextOf(*value);
    if (text.empty())
        return findings.push_back({"dates", Verdict::ok, "the settings give no form: the machine's own counts", {}});
    const std::u16string pattern = ToUtf16(text);
    // 400 days have every name of a weekday in each month.
    const auto first = std::chrono::sys_days(std::chrono::year(2024) / 1 / 1);
    for (auto day = first; day < first + std::chrono::days(400); day += std::chrono::days(1)) {
        if (const std::size_t length = DateLength(pattern, day); length > MostDateUnits) {
            const std::chrono::year_month_day date(day);
            findings.push_back(
                {"dates", Verdict::failure,
                 fmt::format("sShortDate is \"{}\": the date of {:02}/{:02} has {} characters; with more "
                             "than {} the records of that day are lost",
                             text, static_cast<unsigned>(date.month()), static_cast<unsigned>(date.day()), length,
                             MostDateUnits),
                 EditSettings()});
            return;
        }
    }
    findings.push_back({"dates", Verdict::ok, fmt::format("\"{}\" fits on every day", text), {}});
}

}  // namespace tool
