// Decides which records a person wants to see.
#pragma once

#include "records/civil_time.h"
#include "records/record_reader.h"
#include "verbs/log/log_options.h"

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace tool {

class Expression;

/// The conditions of the options. All of them have to hold; of several values of one option, one is enough.
class Filter {
public:
    /// @throws Failure with Exit::usage for a value that is no level, number, time or expression
    explicit Filter(const LogOptions& options);
    Filter(const Filter&) = delete;
    Filter& operator=(const Filter&) = delete;
    ~Filter();

    /// Whether the entry is wanted. Lines that belong to no record follow the record before them.
    bool Wants(const records::Entry& entry);

    /// The texts of which a record has to have one; none: no condition.
    const std::vector<std::u16string>& texts() const { return Texts; }

    /// The time of a record; nothing if its date cannot be read.
    std::optional<records::CivilTime> TimeOf(const records::Record& record);

private:
    bool HasWantedFields(const records::Record& record) const;
    bool HasWantedTime(const records::Record& record);
    bool HasWantedText(std::u16string_view text);

    unsigned Levels = 0;  // a bit for each wanted level; 0: all
    std::vector<std::uint32_t> Processes;
    std::vector<std::uint32_t> Threads;
    std::vector<std::u16string> Sources;
    std::vector<std::u16string> Texts;
    std::unique_ptr<Expression> Pattern;
    std::optional<records::CivilTime> Since;
    std::optional<records::CivilTime> Until;
    std::optional<records::DatePattern> Dates;
    bool IsPatternGiven = false;
    std::u16string KnownDate;  // the last date that was read, and its days: most records have the same
    std::optional<std::int64_t> KnownDays;
    bool WantedLast = true;
};

}  // namespace tool
