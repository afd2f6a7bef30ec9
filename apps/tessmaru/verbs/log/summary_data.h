// What is counted for a summary of a log. The memory does not depend on the size of the log.
#pragma once

#include "records/civil_time.h"
#include "records/record_reader.h"

#include <array>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace tool {

inline constexpr std::size_t LevelCount = 5;
using LevelCounts = std::array<std::uint64_t, LevelCount>;

std::uint64_t Sum(const LevelCounts& counts);

/// Counts in equal spans of time. Where there would be too many spans, they become twice as long.
class TimeBins {
public:
    static constexpr std::size_t Most = 1000;
    static constexpr std::size_t MostSources = 64;  // that have their own counts

    struct Bin {
        std::array<std::uint32_t, LevelCount> Levels{};
        std::array<std::uint32_t, MostSources> Sources{};
    };

    /// @param source the number of the source; from MostSources on it is counted with the levels only
    void Add(records::CivilTime time, records::Level level, std::size_t source);

    records::CivilTime start() const { return Start; }
    std::int64_t width() const { return Width; }
    const std::vector<Bin>& bins() const { return Bins; }

private:
    std::int64_t IndexOf(records::CivilTime time) const;
    void Double();

    records::CivilTime Start = 0;
    std::int64_t Width = 1000;
    std::vector<Bin> Bins;
};

struct SummaryData {
    struct Source {
        std::size_t Number = 0;  // in the order of the first records
        LevelCounts Counts{};
    };
    struct Gap {
        records::CivilTime Begin;
        records::CivilTime End;
    };
    struct Error {
        std::optional<records::CivilTime> Time;
        std::string Source;
        std::string Text;
        std::uint64_t Offset;
    };

    std::uint64_t Records = 0;
    std::uint64_t Strays = 0;   // entries that belong to no record
    std::uint64_t Undated = 0;  // records whose time cannot be read
    LevelCounts Levels{};
    std::map<std::string, Source, std::less<>> Sources;
    std::map<std::uint32_t, LevelCounts> Processes;
    LevelCounts OtherSources{};    // of sources beyond the limit
    LevelCounts OtherProcesses{};  // of processes beyond the limit
    std::optional<records::CivilTime> First;
    std::optional<records::CivilTime> Last;
    TimeBins Bins;
    std::vector<Gap> Gaps;      // the longest, the longest first
    std::vector<Error> Errors;  // the first
};

class SummaryBuilder {
public:
    void Add(const records::Entry& entry, std::optional<records::CivilTime> time);

    const SummaryData& data() const { return Data; }

private:
    std::size_t CountSource(const records::Record& record);
    void CountProcess(const records::Record& record);
    void CountTime(records::CivilTime time, records::Level level, std::size_t source);
    void KeepGap(const SummaryData::Gap& gap);
    void KeepError(const records::Entry& entry, std::optional<records::CivilTime> time);

    SummaryData Data;
    std::optional<records::CivilTime> Before;  // of the record before
    std::u16string KnownName;                  // the last source, since most records have the same as the one before
    SummaryData::Source* KnownSource = nullptr;
};

}  // namespace tool
