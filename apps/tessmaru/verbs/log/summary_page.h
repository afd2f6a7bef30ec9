// The page of a summary, in two parts: the data comes between them.
#pragma once

namespace tool {

extern const char* const SummaryPageStart;
extern const char* const SummaryPageEnd;

}  // namespace tool
