// Decides which records a person wants to see.
#include "verbs/log/filter.h"

#include "records/find_text.h"
#include "records/text_writer.h"
#include "settings/values.h"
#include "text/wide.h"
#include "verbs/log/expression.h"

#include <fmt/format.h>

#include <algorithm>
#include <charconv>

namespace tool {
namespace {

using records::Level;

constexpr Level AllLevels[] = {Level::error, Level::warning, Level::information, Level::status, Level::debug};

bool EqualNames(std::string_view one, std::string_view other)
{
    return std::equal(one.begin(), one.end(), other.begin(), other.end(), [](char a, char b) {
        return std::toupper(static_cast<unsigned char>(a)) == std::toupper(static_cast<unsigned char>(b));
    });
}

/// The bits of a level, and with a plus sign of all that are worse.
unsigned ReadLevel(std::string_view word)
{
    const bool andWorse = word.ends_with('+');
    const std::string_view name = andWorse ? word.substr(0, word.size() - 1) : word;
    for (const Level level : AllLevels) {
        const unsigned bit = 1U << static_cast<unsigned>(level);
        if (EqualNames(name, records::NameOf(level)))
            return andWorse ? bit | (bit - 1) : bit;
    }
    throw Failure(Exit::usage, fmt::format("--level: \"{}\" is none of ERR, WARN, INFO, STATUS and DBUG", word));
}

/// A process or thread: decimal, hexadecimal after 0x, or the eight hexadecimal digits of the log.
std::uint32_t ReadNumber(const char* option, std::string_view word)
{
    constexpr std::size_t digitsInLog = 8;
    const bool isHex = word.starts_with("0x") || word.starts_with("0X");
    const std::string_view digits = isHex ? word.substr(2) : word;
    std::uint32_t number = 0;
    const auto [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), number,
                                              isHex || digits.size() == digitsInLog ? 16 : 10);
    if (error != std::errc() || end != digits.data() + digits.size())
        throw Failure(Exit::usage, fmt::format("{}: \"{}\" is no number", option, word));
    return number;
}

std::optional<records::CivilTime> ReadLimit(const char* option, const std::string& word)
{
    if (word.empty())
        return std::nullopt;
    const auto time = records::ReadTime(word, records::Now());
    if (!time)
        throw Failure(Exit::usage, fmt::format("{}: \"{}\" is no time: write 2026-11-22, \"2026-11-22 09:30\", 09:30, "
                                               "15m, 2h or 3d",
                                               option, word));
    return time;
}

template <class Value>
bool IsWanted(const std::vector<Value>& wanted, const auto& value)
{
    return wanted.empty() || std::find(wanted.begin(), wanted.end(), value) != wanted.end();
}

}  // namespace

Filter::Filter(const LogOptions& options)
    : Since(ReadLimit("--since", options.Since)), Until(ReadLimit("--until", options.Until)),
      IsPatternGiven(!options.DatePattern.empty())
{
    for (const std::string& level : options.Levels)
        Levels |= ReadLevel(level);
    for (const std::string& process : options.Processes)
        Processes.push_back(ReadNumber("--pid", process));
    for (const std::string& thread : options.Threads)
        Threads.push_back(ReadNumber("--tid", thread));
    for (const std::string& source : options.Sources)
        Sources.push_back(ToUtf16(source));
    for (const std::string& text : options.Texts)
        Texts.push_back(ToUtf16(text));
    if (!options.Expression.empty())
        Pattern = std::make_unique<Expression>(options.Expression);
    if (IsPatternGiven) {
        Dates = records::DatePattern::Read(options.DatePattern);
        if (!Dates)
            throw Failure(Exit::usage, "--date-pattern: write a day, a month and a year, such as dd/MM/yyyy");
    } else {
        Dates = records::DatePattern::Read(ShortDatePattern());
    }
}

Filter::~Filter() = default;

std::optional<records::CivilTime> Filter::TimeOf(const records::Record& record)
{
    constexpr std::int64_t millisecondsOfDay = 86'400'000;
    if (record.Date != KnownDate) {
        KnownDate = record.Date;
        if (!IsPatternGiven && (!Dates || !Dates->Days(record.Date)))
            Dates = records::DatePattern::Guess(record.Date);
        KnownDays = Dates ? Dates->Days(record.Date) : std::nullopt;
    }
    if (!KnownDays)
        return std::nullopt;
    return *KnownDays * millisecondsOfDay + records::MillisecondsOf(record.TimeOfDay);
}

bool Filter::HasWantedFields(const records::Record& record) const
{
    return (Levels == 0 || (Levels >> static_cast<unsigned>(record.Severity) & 1) != 0) &&
           IsWanted(Processes, record.Process) && IsWanted(Threads, record.Thread) && IsWanted(Sources, record.Source);
}

bool Filter::HasWantedTime(const records::Record& record)
{
    if (!Since && !Until)
        return true;
    const auto time = TimeOf(record);
    return time && (!Since || *time >= *Since) && (!Until || *time < *Until);
}

bool Filter::HasWantedText(std::u16string_view text)
{
    const auto isIn = [&](const std::u16string& wanted) {
        return records::FindText(text, wanted) != std::u16string_view::npos;
    };
    if (!Texts.empty() && std::none_of(Texts.begin(), Texts.end(), isIn))
        return false;
    if (Pattern == nullptr)
        return true;
    std::string narrow;
    records::AppendText(narrow, text, records::Form::exact);
    return Pattern->IsIn(narrow);
}

bool Filter::Wants(const records::Entry& entry)
{
    if (entry.What == records::Entry::Kind::record)
        WantedLast = HasWantedFields(entry.Fields) && HasWantedTime(entry.Fields) && HasWantedText(entry.Fields.Text);
    return WantedLast;
}

}  // namespace tool
