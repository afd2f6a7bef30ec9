// A summary as JSON, alone or inside a page.
#include "output/json.h"
#include "verbs/log/summary_output.h"
#include "verbs/log/summary_page.h"

namespace tool {
namespace {

void AppendLevels(JsonLine& line, const LevelCounts& counts)
{
    for (std::size_t i = 0; i < LevelCount; ++i)
        line.Number(records::NameOf(static_cast<records::Level>(i)), static_cast<std::int64_t>(counts[i]));
}

void AppendTime(JsonLine& line, std::string_view key, std::optional<records::CivilTime> time)
{
    if (!time)
        return;
    std::string text;
    records::AppendIsoTime(text, *time);
    line.Text(key, text);
}

void AppendSources(JsonLine& line, const SummaryData& data)
{
    line.BeginArray("sources");
    for (const auto& [name, source] : data.Sources) {
        line.BeginObject();
        line.Text("source", name);
        line.Number("number", static_cast<std::int64_t>(source.Number));
        AppendLevels(line, source.Counts);
        line.EndObject();
    }
    line.EndArray();
    line.Number("other_sources", static_cast<std::int64_t>(Sum(data.OtherSources)));
}

void AppendProcesses(JsonLine& line, const SummaryData& data)
{
    line.BeginArray("processes");
    for (const auto& [process, counts] : data.Processes) {
        line.BeginObject();
        line.Number("pid", process);
        AppendLevels(line, counts);
        line.EndObject();
    }
    line.EndArray();
    line.Number("other_processes", static_cast<std::int64_t>(Sum(data.OtherProcesses)));
}

void AppendFindings(JsonLine& line, const SummaryData& data)
{
    line.BeginArray("gaps");
    for (const SummaryData::Gap& gap : data.Gaps) {
        line.BeginObject();
        AppendTime(line, "begin", gap.Begin);
        AppendTime(line, "end", gap.End);
        line.Number("milliseconds", gap.End - gap.Begin);
        line.EndObject();
    }
    line.EndArray();
    line.BeginArray("first_errors");
    for (const SummaryData::Error& error : data.Errors) {
        line.BeginObject();
        AppendTime(line, "time", error.Time);
        line.Text("source", error.Source);
        line.Text("text", error.Text);
        line.Number("offset", static_cast<std::int64_t>(error.Offset));
        line.EndObject();
    }
    line.EndArray();
}

/// The counts over time, without the spans that have no record.
void AppendBins(JsonLine& line, const SummaryData& data)
{
    const TimeBins& bins = data.Bins;
    line.Number("bin_milliseconds", bins.width());
    line.BeginArray("bins");
    for (std::size_t i = 0; i < bins.bins().size(); ++i) {
        const TimeBins::Bin& bin = bins.bins()[i];
        const LevelCounts levels{bin.Levels[0], bin.Levels[1], bin.Levels[2], bin.Levels[3], bin.Levels[4]};
        if (Sum(levels) == 0)
            continue;
        line.BeginObject();
        AppendTime(line, "time", bins.start() + static_cast<std::int64_t>(i) * bins.width());
        AppendLevels(line, levels);
        line.BeginArray("sources");
        for (std::size_t n = 0; n < TimeBins::MostSources; ++n) {
            if (bin.Sources[n] == 0)
                continue;
            line.BeginObject();
            line.Number("number", static_cast<std::int64_t>(n));
            line.Number("records", bin.Sources[n]);
            line.EndObject();
        }
        line.EndArray();
        line.EndObject();
    }
    line.EndArray();
}

}  // namespace

std::string SummaryJson(const std::string& file, const SummaryData& data)
{
    JsonLine line;
    line.Text("file", file);
    line.Number("records", static_cast<std::int64_t>(data.Records));
    line.Number("lines_outside_records", static_cast<std::int64_t>(data.Strays));
    line.Number("records_without_time", static_cast<std::int64_t>(data.Undated));
    AppendTime(line, "first", data.First);
    AppendTime(line, "last", data.Last);
    AppendLevels(line, data.Levels);
    AppendSources(line, data);
    AppendProcesses(line, data);
    AppendFindings(line, data);
    AppendBins(line, data);
    return line.Take();
}

std::string SummaryPage(const std::string& file, const SummaryData& data)
{
    std::string page = SummaryPageStart;
    for (const char each : SummaryJson(file, data)) {
        // Inside a string of JSON only: an element of the page cannot end or begin there.
        if (each == '<')
            page += "\\u003c";
        else
            page += each;
    }
    return page + SummaryPageEnd;
}

}  // namespace tool
