// Times of records: the date in the machine's short form, and the time of day.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace records {

/// A local time without a zone, in milliseconds since 1970-01-01 00:00. Times of one machine compare as numbers.
using CivilTime = std::int64_t;

/// The form of a date: `d`, `dd`, `M`, `MM`, `yy` and `yyyy` are numbers, text in single quotes and every other letter
/// are themselves.
class DatePattern {
public:
    /// @return nothing if the pattern has no day, month and year in numbers
    static std::optional<DatePattern> Read(std::string_view pattern);

    /// The common pattern that reads `date`. Where several do, as for 03/04/2026, the day comes before the month.
    static std::optional<DatePattern> Guess(std::u16string_view date);

    /// The days since 1970-01-01; nothing if the text is no such date.
    std::optional<std::int64_t> Days(std::u16string_view date) const;

    const std::string& text() const { return Text; }

private:
    struct Part {
        char Unit;       // 'd', 'M', 'y', or 0 for text
        unsigned Width;  // the number of letters, or of digits at least
        char16_t Letter;
    };

    std::string Text;
    std::vector<Part> Parts;
};

/// The milliseconds of a day from "HH:mm:ss.mmm".
std::int64_t MillisecondsOf(std::u16string_view timeOfDay);

/// Reads a time that a person gives: "2026-11-22", "2026-11-22 09:30", "2026-11-22T09:30:15.250", "09:30" of today,
/// or a span before `now` such as "15m", "2h" or "3d".
std::optional<CivilTime> ReadTime(std::string_view text, CivilTime now);

/// The time now, in this machine's zone.
CivilTime Now();

/// Appends "2026-11-22T09:09:12.045+01:00". The zone is that of this machine at that time.
void AppendIsoTime(std::string& out, CivilTime time);

}  // namespace records
