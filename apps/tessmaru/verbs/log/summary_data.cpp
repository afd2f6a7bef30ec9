// Counts the records of a log.
#include "verbs/log/summary_data.h"

#include "records/text_writer.h"

#include <algorithm>
#include <numeric>

namespace tool {
namespace {

// A log of other content has no end of names and numbers.
constexpr std::size_t MostNames = 1000;
constexpr std::size_t MostProcesses = 10'000;
constexpr std::size_t LongestName = 64;
constexpr std::size_t LongestText = 200;
constexpr std::size_t MostErrors = 10;
constexpr std::size_t MostGaps = 5;

std::int64_t FloorTo(std::int64_t value, std::int64_t step)
{
    return value - (value % step + step) % step;
}

std::string Shown(std::u16string_view text, std::size_t longest)
{
    std::string result;
    records::AppendText(result, text.substr(0, longest), records::Form::shown);
    return result;
}

}  // namespace

std::uint64_t Sum(const LevelCounts& counts)
{
    return std::accumulate(counts.begin(), counts.end(), std::uint64_t{0});
}

std::int64_t TimeBins::IndexOf(records::CivilTime time) const
{
    return (FloorTo(time, Width) - Start) / Width;
}

void TimeBins::Double()
{
    const records::CivilTime start = FloorTo(Start, 2 * Width);
    const auto shift = static_cast<std::size_t>((Start - start) / Width);
    std::vector<Bin> merged((Bins.size() + shift + 1) / 2);
    for (std::size_t i = 0; i < Bins.size(); ++i) {
        Bin& bin = merged[(i + shift) / 2];
        for (std::size_t n = 0; n < LevelCount; ++n)
            bin.Levels[n] += Bins[i].Levels[n];
        for (std::size_t n = 0; n < MostSources; ++n)
            bin.Sources[n] += Bins[i].Sources[n];
    }
    Bins = std::move(merged);
    Start = start;
    Width *= 2;
}

void TimeBins::Add(records::CivilTime time, records::Level level, std::size_t source)
{
    if (Bins.empty())
        Start = FloorTo(time, Width);
    const auto most = static_cast<std::int64_t>(Most);
    while (IndexOf(time) >= most || static_cast<std::int64_t>(Bins.size()) - IndexOf(time) > most)
        Double();
    std::int64_t index = IndexOf(time);
    if (index < 0) {
        // The clock was set back.
        Bins.insert(Bins.begin(), static_cast<std::size_t>(-index), Bin());
        Start += index * Width;
        index = 0;
    }
    const auto place = static_cast<std::size_t>(index);
    if (place >= Bins.size())
        Bins.resize(place + 1);
    ++Bins[place].Levels[static_cast<std::size_t>(level)];
    if (source < MostSources)
        ++Bins[place].Sources[source];
}

/// @return the number of the source
std::size_t SummaryBuilder::CountSource(const records::Record& record)
{
    const auto level = static_cast<std::size_t>(record.Severity);
    if (KnownSource == nullptr || record.Source != KnownName) {
        const std::string name = Shown(record.Source, LongestName);
        auto found = Data.Sources.find(name);
        if (found == Data.Sources.end() && Data.Sources.size() < MostNames)
            found = Data.Sources.emplace(name, SummaryData::Source{Data.Sources.size(), {}}).first;
        if (found == Data.Sources.end()) {
            ++Data.OtherSources[level];
            return MostNames;
        }
        KnownName = record.Source;
        KnownSource = &found->second;
    }
    ++KnownSource->Counts[level];
    return KnownSource->Number;
}

void SummaryBuilder::CountProcess(const records::Record& record)
{
    const auto level = static_cast<std::size_t>(record.Severity);
    auto found = Data.Processes.find(record.Process);
    if (found == Data.Processes.end() && Data.Processes.size() < MostProcesses)
        found = Data.Processes.emplace(record.Process, LevelCounts{}).first;
    ++(found == Data.Processes.end() ? Data.OtherProcesses : found->second)[level];
}

void SummaryBuilder::KeepGap(const SummaryData::Gap& gap)
{
    const auto length = [](const SummaryData::Gap& each) { return each.End - each.Begin; };
    if (Data.Gaps.size() == MostGaps && length(gap) <= length(Data.Gaps.back()))
        return;
    const auto place =
        std::find_if(Data.Gaps.begin(), Data.Gaps.end(), [&](const auto& each) { return length(gap) > length(each); });
    Data.Gaps.insert(place, gap);
    Data.Gaps.resize(std::min(Data.Gaps.size(), MostGaps));
}

void SummaryBuilder::CountTime(records::CivilTime time, records::Level level, std::size_t source)
{
    constexpr std::int64_t leastGap = 1000;
    Data.First = std::min(Data.First.value_or(time), time);
    Data.Last = std::max(Data.Last.value_or(time), time);
    if (Before && time - *Before >= leastGap)
        KeepGap({*Before, time});
    Before = time;
    Data.Bins.Add(time, level, source);
}

void SummaryBuilder::KeepError(const records::Entry& entry, std::optional<records::CivilTime> time)
{
    if (entry.Fields.Severity != records::Level::error || Data.Errors.size() == MostErrors)
        return;
    const std::u16string_view text = entry.Fields.Text;
    Data.Errors.push_back({time, Shown(entry.Fields.Source, LongestName),
                           Shown(text.substr(0, text.find_first_of(u"\r\n")), LongestText), entry.Offset});
}

void SummaryBuilder::Add(const records::Entry& entry, std::optional<records::CivilTime> time)
{
    if (entry.What != records::Entry::Kind::record) {
        ++Data.Strays;
        return;
    }
    ++Data.Records;
    ++Data.Levels[static_cast<std::size_t>(entry.Fields.Severity)];
    CountProcess(entry.Fields);
    const std::size_t source = CountSource(entry.Fields);
    KeepError(entry, time);
    if (time)
        CountTime(*time, entry.Fields.Severity, source);
    else
        ++Data.Undated;
}

}  // namespace tool
