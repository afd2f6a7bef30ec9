// A summary for a person.
#include "verbs/log/summary_output.h"

#include <fmt/format.h>

#include <algorithm>
#include <iterator>

namespace tool {
namespace {

constexpr std::size_t MostRows = 15;
constexpr std::string_view Blocks[] = {" ", "▁", "▂", "▃", "▄", "▅", "▆", "▇", "█"};

using Row = std::pair<std::string, LevelCounts>;

/// A table of the rows with the most records.
void WriteRows(Output& out, std::string_view title, std::vector<Row> rows, const LevelCounts& others)
{
    std::stable_sort(rows.begin(), rows.end(),
                     [](const Row& one, const Row& other) { return Sum(one.second) > Sum(other.second); });
    LevelCounts rest = others;
    for (std::size_t i = MostRows; i < rows.size(); ++i) {
        for (std::size_t n = 0; n < LevelCount; ++n)
            rest[n] += rows[i].second[n];
    }
    rows.resize(std::min(rows.size(), MostRows));
    if (Sum(rest) > 0)
        rows.emplace_back("others", rest);
    out.Write(fmt::format("\n{:<24} {:>12}", title, "records"), Style::bold);
    for (std::size_t n = 0; n < LevelCount; ++n)
        out.Write(fmt::format(" {:>10}", records::NameOf(static_cast<records::Level>(n))), Style::bold);
    out.Write("\n");
    for (const auto& [name, counts] : rows) {
        out.Write(fmt::format("{:<24} {:>12}", name, Sum(counts)));
        for (const std::uint64_t count : counts)
            out.Write(fmt::format(" {:>10}", count));
        out.Write("\n");
    }
}

/// One row of bars, in eighths of its height. A count that is not 0 is always seen.
void WriteBars(Output& out, std::string_view title, const std::vector<std::uint64_t>& counts, Style style)
{
    const std::uint64_t most = std::max<std::uint64_t>(*std::max_element(counts.begin(), counts.end()), 1);
    std::string bars;
    for (const std::uint64_t count : counts)
        bars += Blocks[(count * 8 + most - 1) / most];
    out.Write(fmt::format("{:<7}", title));
    out.Write(bars, style);
    out.Write("\n");
}

/// The counts of the levels in `levels` (a bit for each), in `columns` spans of equal length.
std::vector<std::uint64_t> Columns(const TimeBins& bins, std::size_t perColumn, unsigned levels)
{
    std::vector<std::uint64_t> counts((bins.bins().size() + perColumn - 1) / perColumn);
    for (std::size_t i = 0; i < bins.bins().size(); ++i) {
        for (std::size_t n = 0; n < LevelCount; ++n)
            counts[i / perColumn] += (levels >> n & 1) != 0 ? bins.bins()[i].Levels[n] : 0;
    }
    return counts;
}

void WriteTimeline(Output& out, const SummaryData& data, unsigned width)
{
    constexpr unsigned titleColumns = 8;
    constexpr unsigned allLevels = (1U << LevelCount) - 1;
    const TimeBins& bins = data.Bins;
    if (bins.bins().empty())
        return;
    const std::size_t columns = std::max(width, titleColumns + 20) - titleColumns;
    const std::size_t perColumn = (bins.bins().size() + columns - 1) / columns;
    out.Write(
        fmt::format("\nOver time, one column is {}\n", SpanText(bins.width() * static_cast<std::int64_t>(perColumn))),
        Style::bold);
    WriteBars(out, "all", Columns(bins, perColumn, allLevels), Style::plain);
    WriteBars(out, "WARN", Columns(bins, perColumn, 1U << static_cast<unsigned>(records::Level::warning)),
              Style::yellow);
    WriteBars(out, "ERR", Columns(bins, perColumn, 1U << static_cast<unsigned>(records::Level::error)), Style::red);
}

void WriteFindings(Output& out, const SummaryData& data)
{
    if (!data.Errors.empty())
        out.Write("\nFirst errors\n", Style::bold);
    for (const SummaryData::Error& error : data.Errors)
        out.Line(fmt::format("{}  {}: {}", error.Time ? TimeText(*error.Time) : std::string(23, '?'), error.Source,
                             error.Text));
    if (!data.Gaps.empty())
        out.Write("\nLongest silences\n", Style::bold);
    for (const SummaryData::Gap& gap : data.Gaps)
        out.Line(fmt::format("{}  {}", TimeText(gap.Begin), SpanText(gap.End - gap.Begin)));
}

}  // namespace

std::string TimeText(records::CivilTime time)
{
    constexpr std::size_t zoneLength = 6;
    std::string text;
    records::AppendIsoTime(text, time);
    text.resize(text.size() - zoneLength);
    text[text.find('T')] = ' ';
    return text;
}

std::string SpanText(std::int64_t milliseconds)
{
    static constexpr std::pair<std::int64_t, const char*> units[] = {
        {86'400'000, "d"}, {3'600'000, "h"}, {60'000, "min"}, {1000, "s"}, {1, "ms"}};
    for (auto unit = std::begin(units); unit != std::end(units); ++unit) {
        if (milliseconds < unit->first)
            continue;
        std::string text = fmt::format("{} {}", milliseconds / unit->first, unit->second);
        const std::int64_t rest = milliseconds % unit->first;
        const auto next = unit + 1;
        if (next != std::end(units) && rest >= next->first)
            text += fmt::format(" {} {}", rest / next->first, next->second);
        return text;
    }
    return "0 ms";
}

void WriteSummary(Output& out, const std::string& file, const SummaryData& data, unsigned columns)
{
    out.Line(fmt::format("{}: {} records", file, data.Records));
    if (data.First)
        out.Line(fmt::format("from {} to {}", TimeText(*data.First), TimeText(*data.Last)));
    if (data.Strays > 0)
        out.Line(fmt::format("{} pieces of text belong to no record", data.Strays));
    if (data.Undated > 0)
        out.Line(fmt::format("{} records have a date that cannot be read; give --date-pattern", data.Undated));
    std::vector<Row> sources;
    for (const auto& [name, source] : data.Sources)
        sources.emplace_back(name, source.Counts);
    std::vector<Row> processes;
    for (const auto& [process, counts] : data.Processes)
        processes.emplace_back(fmt::format("{} ({:08x})", process, process), counts);
    WriteRows(out, "Source", std::move(sources), data.OtherSources);
    WriteRows(out, "Process", std::move(processes), data.OtherProcesses);
    WriteRows(out, "All", {{"", data.Levels}}, {});
    WriteTimeline(out, data, columns);
    WriteFindings(out, data);
}

}  // namespace tool
