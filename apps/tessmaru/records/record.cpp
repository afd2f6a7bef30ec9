// Parses a record. Each field is checked by its form, so that a further line of a text is not taken for a record.
#include "records/record.h"

#include "records/plain_run.h"

#include <algorithm>
#include <array>
#include <cstring>

namespace records {
namespace {

constexpr std::size_t SeparatorLength = 3;   // a blank, a bar and a blank
constexpr std::size_t TimeOfDayLength = 12;  // HH:mm:ss.mmm
constexpr std::size_t NumberLength = 8;
constexpr std::size_t LevelLength = 4;
constexpr std::size_t SourceLength = 12;
constexpr std::size_t LongestDate = 80;        // a short date on this platform has at most 80 units
constexpr std::size_t LongestHead = 4 * 1024;  // the fields before the text are shorter

struct LevelName {
    char16_t InFile[LevelLength + 1];
    std::string_view Name;
};

// In the order of `Level`.
constexpr std::array<LevelName, 5> Levels = {
    {{u" ERR", "ERR"}, {u"WARN", "WARN"}, {u"INFO", "INFO"}, {u"    ", "STATUS"}, {u"DBUG", "DBUG"}}};

constexpr unsigned NoDigit = 0x100;

/// The values of the hexadecimal digits in lower case. One look-up a unit without a branch: the parse of the fields is
/// the largest part of the time that a record takes.
constexpr auto Digits = [] {
    std::array<unsigned, 128> values{};
    values.fill(NoDigit);
    for (unsigned i = 0; i < 10; ++i)
        values['0' + i] = i;
    for (unsigned i = 0; i < 6; ++i)
        values['a' + i] = 10 + i;
    return values;
}();

unsigned DigitOf(char16_t unit)
{
    return unit < Digits.size() ? Digits[unit] : NoDigit;
}

bool IsTimeOfDay(const char16_t* field)
{
    constexpr std::size_t digits[] = {0, 1, 3, 4, 6, 7, 9, 10, 11};
    unsigned exceptions = 0;
    for (const std::size_t i : digits)
        exceptions |= static_cast<unsigned>(static_cast<unsigned>(field[i] - u'0') > 9);
    return exceptions == 0 && field[2] == u':' && field[5] == u':' && field[8] == u'.';
}

bool IsSeparator(const char16_t* place)
{
    return place[0] == u' ' && place[1] == u'|' && place[2] == u' ';
}

/// The place of the first separator from `from` on, before `limit`; npos if there is none.
std::size_t FindSeparator(std::u16string_view line, std::size_t from, std::size_t limit)
{
    limit = std::min(limit, line.size());
    for (std::size_t bar = from + 1; bar + 1 < limit; ++bar) {
        bar += FindUnit(line.data() + bar, limit - bar, u'|');
        if (bar + 1 < limit && IsSeparator(line.data() + bar - 1))
            return bar - 1;
    }
    return std::u16string_view::npos;
}

/// The eight digits and the separator at `place`, after which it is moved.
bool TakeNumber(const char16_t*& place, std::uint32_t& number)
{
    unsigned exceptions = 0;
    number = 0;
    for (std::size_t i = 0; i < NumberLength; ++i) {
        const unsigned digit = DigitOf(place[i]);
        exceptions |= digit & NoDigit;
        number = number << 4 | (digit & 0xF);
    }
    place += NumberLength + SeparatorLength;
    return exceptions == 0 && IsSeparator(place - SeparatorLength);
}

bool TakeLevel(const char16_t*& place, Level& level)
{
    for (std::size_t i = 0; i < Levels.size(); ++i) {
        if (std::memcmp(place, Levels[i].InFile, LevelLength * sizeof(char16_t)) == 0) {
            level = static_cast<Level>(i);
            place += LevelLength + SeparatorLength;
            return IsSeparator(place - SeparatorLength);
        }
    }
    return false;
}

}  // namespace

std::string_view NameOf(Level level)
{
    return Levels[static_cast<std::size_t>(level)].Name;
}

std::optional<Record> ParseRecord(std::u16string_view line)
{
    constexpr std::size_t fixedLength = 2 * (NumberLength + SeparatorLength) + LevelLength + SeparatorLength;
    const std::size_t time = FindSeparator(line, 0, LongestDate + 1 + TimeOfDayLength + SeparatorLength);
    if (time == std::u16string_view::npos || time < TimeOfDayLength + 2 ||
        line.size() < time + SeparatorLength + fixedLength + SourceLength + SeparatorLength)
        return std::nullopt;
    Record record;
    record.Line = line;
    record.TimeOfDay = line.substr(time - TimeOfDayLength, TimeOfDayLength);
    record.Date = line.substr(0, time - TimeOfDayLength - 1);
    const char16_t* place = line.data() + time + SeparatorLength;
    if (line[record.Date.size()] != u' ' || !IsTimeOfDay(record.TimeOfDay.data()) ||
        !TakeNumber(place, record.Process) || !TakeNumber(place, record.Thread) || !TakeLevel(place, record.Severity))
        return std::nullopt;
    // The source fills at least twelve columns.
    const auto source = static_cast<std::size_t>(place - line.data());
    const std::size_t end = FindSeparator(line, source + SourceLength, line.size());
    if (end == std::u16string_view::npos)
        return std::nullopt;
    record.Source = line.substr(source, end - source);
    while (record.Source.starts_with(u' '))
        record.Source.remove_prefix(1);
    record.Text = line.substr(end + SeparatorLength);
    return record;
}

bool StartsRecord(std::u16string_view text)
{
    text = text.substr(0, LongestHead);
    auto record = ParseRecord(text);
    if (!record)
        return false;
    // Rarely there is a line feed in the fields: then the first line decides.
    const auto head = static_cast<std::size_t>(record->Text.data() - text.data());
    return FindUnit(text.data(), head, u'\n') == head || ParseRecord(text.substr(0, text.find(u"\r\n"))).has_value();
}

}  // namespace records
