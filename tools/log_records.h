// Reads a log file back: its records, field by field, and whatever in it is no whole record.
#pragma once

#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

namespace tools {

/// UTF-16, low byte first, as UTF-8. A half of a pair shows as U+FFFD, an odd byte at the end likewise.
std::string DecodeUtf16(std::string_view bytes);

/// The fields of one record, as they stand in the file, without the separators.
struct Record {
    std::string_view Line;
    std::string_view Time;
    std::string_view Process;
    std::string_view Thread;
    std::string_view Level;
    std::string_view Source;
    std::string_view Text;
};

/// One log file, read whole. A record whose text holds line ends of its own counts as torn here.
class LogFile {
public:
    /// @throws std::system_error for a file that cannot be read.
    explicit LogFile(const std::filesystem::path& path);
    LogFile(const LogFile&) = delete;
    LogFile& operator=(const LogFile&) = delete;

    const std::vector<Record>& Records() const { return Whole; }

    /// Lines that are no records: without one of the fields, or without their line end.
    const std::vector<std::string_view>& Torn() const { return Broken; }

private:
    std::string Content;
    std::vector<Record> Whole;
    std::vector<std::string_view> Broken;
};

/// Prints the records of a log file, a line each.
void PrintLog(const std::filesystem::path& path);

}  // namespace tools
