// Holds the records that were reported written against the records that a log file has.
#pragma once

#include "family.h"
#include "log_records.h"

#include <optional>
#include <string_view>
#include <vector>

namespace tools {

/// Who wrote a record, and its number among the thread's records, from 1. Stands in front of the text as
/// "p3 t1 n42 ".
struct Mark {
    unsigned Process;
    unsigned Thread;
    unsigned Number;
};

/// The mark of a record's text, if it has one.
std::optional<Mark> ReadMark(std::string_view text);

/// What the comparison found. Every count but the first two is a fault.
struct Findings {
    unsigned Written = 0;     // reported
    unsigned Unreported = 0;  // in the file, of a process that was killed before it could report it
    unsigned Lost = 0;        // reported, but not in the file
    unsigned Duplicated = 0;
    unsigned Misplaced = 0;   // behind a later record of the same thread
    unsigned Unexpected = 0;  // nobody can have written it

    bool Sound() const { return Lost + Duplicated + Misplaced + Unexpected == 0; }
};

/// Compares the processes from `first` up to, not including, `end`. `killed[p]`: process p was killed, so that
/// each of its threads may have written one record that it did not report.
class Ledger {
public:
    Ledger(const Board& board, unsigned first, unsigned end, const std::vector<bool>& killed);

    /// Enters the records in the order in which the file has them.
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

}  // namespace tools
