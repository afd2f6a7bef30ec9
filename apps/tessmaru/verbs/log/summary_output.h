// The forms of a summary.
#pragma once

#include "output/output.h"
#include "verbs/log/summary_data.h"

#include <string>

namespace tool {

/// For a person, with bars over time as wide as the terminal.
void WriteSummary(Output& out, const std::string& file, const SummaryData& data, unsigned columns);

/// As one line of JSON.
std::string SummaryJson(const std::string& file, const SummaryData& data);

/// As one page of HTML that loads nothing else.
std::string SummaryPage(const std::string& file, const SummaryData& data);

/// "2026-11-22 09:09:12.045".
std::string TimeText(records::CivilTime time);

/// "1 d 2 h", "5 min 3 s", "250 ms": the two largest units.
std::string SpanText(std::int64_t milliseconds);

}  // namespace tool
