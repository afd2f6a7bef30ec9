// One record of the log file, as views into the file's UTF-16 text.
#pragma once

#include <cstdint>
#include <optional>
#include <string_view>

namespace records {

enum class Level { error, warning, information, status, debug };

/// "ERR", "WARN", "INFO", "STATUS" or "DBUG".
std::string_view NameOf(Level level);

/// The fields of a record. The views refer to the text that was parsed.
struct Record {
    std::u16string_view Date;       // as the machine writes its short date
    std::u16string_view TimeOfDay;  // HH:mm:ss.mmm
    std::uint32_t Process = 0;
    std::uint32_t Thread = 0;
    Level Severity = Level::status;
    std::u16string_view Source;  // without the blanks before it
    std::u16string_view Text;    // with inner line ends, without the one that ends the record
    std::u16string_view Line;    // the whole record, without its line end
};

/// Reads the five fields at the start of a line. The text is the rest.
/// @return nothing if the line does not start a record
std::optional<Record> ParseRecord(std::u16string_view line);

/// Whether a text starts with the five fields of a record. Unlike a line, it may go on with further lines.
bool StartsRecord(std::u16string_view text);

}  // namespace records
