// Reads a log file: its records, field by field, and every line that is not a whole record.
//
//     const LogFile log(path);
//     for (const Record& record : log.Records()) ...   EXPECT_TRUE(log.Torn().empty());
#pragma once

#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace testkit {

/// The fields of one record as they are in the file, without the separators, in UTF-8.
struct Record {
    std::string_view Line;
    std::string_view Time;
    std::string_view Process;
    std::string_view Thread;
    std::string_view Level;
    std::string_view Source;
    std::string_view Text;
};

/// Reads a line without its line end, in UTF-8. The record refers to the line. @return no record if a field is missing
std::optional<Record> ReadRecord(std::string_view line);

/// A log file, read once. A record whose text holds line ends counts as torn.
class LogFile {
public:
    /// @throws std::runtime_error if the file cannot be read.
    explicit LogFile(const std::filesystem::path& path);

    /// The whole records. They refer to this object.
    const std::vector<Record>& Records() const { return Whole; }

    /// Lines without one of the fields or without a line end.
    const std::vector<std::string_view>& Torn() const { return Broken; }

private:
    std::unique_ptr<const std::string> Content;  // stays where it is when the object moves
    std::vector<Record> Whole;
    std::vector<std::string_view> Broken;
};

}  // namespace testkit
