// The processes that use the log in a run: the one that is disturbed, its successor, one that keeps the log open, and
// one that was killed before.
#pragma once

#include "testkit/mapped_file.h"
#include "testkit/writer_reports.h"

#include <filesystem>
#include <string>
#include <vector>

namespace kill_points {

/// The numbers of the processes in the marks of records and in the reports.
enum Writer : unsigned { Disturbed, Successor, Holder, Earlier, WriterCount };

/// The number of records that a process writes. One of them is long. The last two come after a change of the second.
constexpr unsigned RecordsOfWriter = 5;

/// The holder writes up to its goal, at most RecordsOfWriter records. This goal ends it.
constexpr unsigned EndOfHolder = 0xFFFF;

/// The exit status of a process that did not open the log and got no code for the failure.
constexpr int NoCode = 3;
/// The exit status of a process that cannot be traced.
constexpr int NotTraced = 4;

/// The memory that the processes of a run share.
struct Shared {
    explicit Shared(const std::filesystem::path& folder)
        : Reports(folder / "reports", WriterCount, 1), Uncounted(folder / "uncounted")
    {
    }

    testkit::WriterReport& Of(Writer writer) const { return Reports.At(writer, 0); }

    const testkit::WriterReports Reports;
    const testkit::SharedValue<std::atomic<std::uint32_t>> Uncounted;
};

/// The text of a record, which follows from its mark.
std::string TextOf(unsigned writer, unsigned number);

/// The work of a process with these arguments: "--write", folder, number of the writer, then any of "--traced",
/// "--hold", "--move" and "--plant=FAULT". A process that moves the log does it before the change of the second.
[[noreturn]] void RunWriter(const std::vector<std::string>& words);

}  // namespace kill_points
