// Accounts for every record in the files of one generation of writers.
#pragma once

#include "soak/log_lines.h"
#include "soak/mode.h"
#include "soak/verdict.h"

#include "testkit/ledger.h"
#include "testkit/log_reader.h"
#include "testkit/writer_reports.h"

#include <set>
#include <string>
#include <utility>
#include <vector>

namespace soak {

/// The writers of one generation: the processes from `First` up to, not including, `End`.
struct Writers {
    unsigned First = 0;
    unsigned End = 0;
    std::vector<bool> Killed;         // by the number of the process
    std::set<std::string> KilledIds;  // their process ids, as in a record
    unsigned Closings = 0;            // processes that ended by themselves
};

/// The text with which writers try to write into the log other than by its calls. It is outside the log's 16-bit form.
inline constexpr std::string_view Stray = "~stray~\n";

class LogCheck {
public:
    LogCheck(const testkit::WriterReports& reports, const Writers& writers, unsigned seed, const Rules& rules,
             Verdict& verdict);

    /// To be called for the files in the order in which they were the log.
    void Read(const std::filesystem::path& path);

    void Close();

private:
    void Take(const Line& line);
    bool TakeWhole(const Line& line);
    bool TakeCut(const Line& line);
    bool IsCutFront(Units front, std::uint64_t end);
    void CheckOrder(std::string_view time);

    const testkit::WriterReports& Reports;
    const Writers& Of;
    const unsigned Seed;
    const Rules Rule;
    Verdict& Found;
    testkit::Ledger Ledger;
    std::set<std::pair<unsigned, unsigned>> CutThreads;
    std::uint64_t Cuts = 0;
    unsigned Closings = 0;
    std::string Latest;  // time stamp
};

}  // namespace soak
