// What writing processes report to the process that checks their log.
#include "testkit/writer_reports.h"

#include <stdexcept>

namespace testkit {

WriterReports::WriterReports(const std::filesystem::path& path, unsigned processes, unsigned threads)
    : ProcessCount(processes), ThreadCount(threads), File(path, sizeof(WriterReport) * processes * threads)
{
}

WriterReport& WriterReports::At(unsigned process, unsigned thread) const
{
    if (process >= ProcessCount || thread >= ThreadCount)
        throw std::out_of_range("no such report");
    return static_cast<WriterReport*>(File.data())[process * ThreadCount + thread];
}

}  // namespace testkit
