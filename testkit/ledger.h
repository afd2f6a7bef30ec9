// Compares the records that writers reported with the records that a log file has.
//
//     Ledger ledger(reports, 0, processes, killed);
//     for (const Record& record : log.Records())
//         if (const auto mark = ReadMark(record.Text))
//             ledger.Enter(*mark);
//     EXPECT_TRUE(ledger.Close().IsClean());
#pragma once

#include "testkit/writer_reports.h"

#include <optional>
#include <string_view>
#include <vector>

namespace testkit {

/// The writer of a record, and the record's number in its thread, from 1. At the start of the text, as "p3 t1 n42 ".
struct Mark {
    unsigned Process;
    unsigned Thread;
    unsigned Number;
};

/// The mark of a record's text, if it has one.
std::optional<Mark> ReadMark(std::string_view text);

/// The result of a comparison. Every count but the first two is a fault.
struct Findings {
    unsigned Written = 0;     // reported
    unsigned Unreported = 0;  // in the file, by a process that was killed before it could report the record
    unsigned Lost = 0;        // reported, but not in the file
    unsigned Duplicated = 0;
    unsigned Misplaced = 0;   // after a later record of the same thread
    unsigned Unexpected = 0;  // by no writer, or with a number that no writer has reached

    bool IsClean() const { return Lost + Duplicated + Misplaced + Unexpected == 0; }
};

/// Compares the processes from `first` up to, not including, `end`. `killed[p]`: process p was killed, so each of its
/// threads may have written one record that it did not report.
class Ledger {
public:
    Ledger(const WriterReports& reports, unsigned first, unsigned end, const std::vector<bool>& killed);

    /// Enters a record. To be called in the order of the file.
    void Enter(const Mark& mark);

    Findings Close() const;

private:
    struct Account {
        std::vector<bool> Seen;  // by number; element 0 is not used
        unsigned Written = 0;
        unsigned Highest = 0;
    };

    unsigned First;
    unsigned Threads;
    std::vector<Account> Accounts;
    Findings Found;
};

}  // namespace testkit
