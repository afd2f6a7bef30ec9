// What writing processes report to the process that checks their log.
//
//     const WriterReports reports(folder / "reports", 4, 2);   // the same in every process
//     ++reports.At(process, thread).Written;
#pragma once

#include "testkit/mapped_file.h"

#include <atomic>
#include <cstdint>
#include <filesystem>

namespace testkit {

/// The report of one thread of one process. A report outlives its process.
struct WriterReport {
    std::atomic<std::uint32_t> Goal;         // records to write, set before the process starts
    std::atomic<std::uint32_t> Written;      // number of the last record whose call returned 0
    std::atomic<std::uint32_t> Timeouts;     // calls that returned 0x80040302
    std::atomic<std::uint32_t> Failures;     // calls that returned any other code
    std::atomic<std::uint32_t> LastFailure;  // the last of these codes
    std::atomic<std::uint32_t> Opened;       // 1 after the process has opened its log
};

/// The reports of all threads of all processes, in a file that they map.
class WriterReports {
public:
    /// Opens the reports at `path`, or makes empty ones. Every process passes the same numbers.
    WriterReports(const std::filesystem::path& path, unsigned processes, unsigned threads);

    /// @throws std::out_of_range
    WriterReport& At(unsigned process, unsigned thread) const;

    unsigned threads() const { return ThreadCount; }

private:
    unsigned ProcessCount;
    unsigned ThreadCount;
    MappedFile File;
};

}  // namespace testkit
