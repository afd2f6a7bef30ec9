// Each field of a record is checked by its form, so that half a record, or a record inside another, shows as torn.
#include "testkit/log_reader.h"

#include "testkit/file_content.h"
#include "testkit/utf16.h"

#include <algorithm>
#include <array>

namespace testkit {
namespace {

constexpr std::string_view Separator = " | ";
constexpr std::string_view LineEnd = "\r\n";
constexpr std::array<std::string_view, 5> Levels = {" ERR", "WARN", "INFO", "    ", "DBUG"};

/// Takes the text before the next separator off `rest`.
std::optional<std::string_view> TakeField(std::string_view& rest, std::size_t atLeast)
{
    const std::size_t end = rest.find(Separator, atLeast);
    if (end == std::string_view::npos)
        return std::nullopt;
    const std::string_view field = rest.substr(0, end);
    rest.remove_prefix(end + Separator.size());
    return field;
}

/// Any date, a blank, HH:mm:ss.mmm.
bool IsTime(std::string_view field)
{
    constexpr std::string_view pattern = " 00:00:00.000";
    if (field.size() <= pattern.size())
        return false;
    field.remove_prefix(field.size() - pattern.size());
    return std::equal(field.begin(), field.end(), pattern.begin(), [](char unit, char wanted) {
        return wanted == '0' ? unit >= '0' && unit <= '9' : unit == wanted;
    });
}

bool IsNumber(std::string_view field)
{
    return field.size() == 8 && field.find_first_not_of("0123456789abcdef") == std::string_view::npos;
}

}  // namespace

std::optional<Record> ReadRecord(std::string_view line)
{
    std::string_view rest = line;
    const auto time = TakeField(rest, 0);
    const auto process = TakeField(rest, 8);
    const auto thread = TakeField(rest, 8);
    const auto level = TakeField(rest, 4);
    const auto source = TakeField(rest, 12);
    if (!time || !process || !thread || !level || !source)
        return std::nullopt;
    if (!IsTime(*time) || !IsNumber(*process) || !IsNumber(*thread))
        return std::nullopt;
    if (std::find(Levels.begin(), Levels.end(), *level) == Levels.end())
        return std::nullopt;
    return Record{line, *time, *process, *thread, *level, *source, rest};
}

LogFile::LogFile(const std::filesystem::path& path)
    : Content(std::make_unique<const std::string>(DecodeUtf16(ReadFile(path))))
{
    std::string_view rest = *Content;
    while (!rest.empty()) {
        const std::size_t end = rest.find(LineEnd);
        const std::string_view line = rest.substr(0, end);
        const auto record = end == std::string_view::npos ? std::nullopt : ReadRecord(line);
        if (record)
            Whole.push_back(*record);
        else
            Broken.push_back(line);
        rest.remove_prefix(end == std::string_view::npos ? rest.size() : end + LineEnd.size());
    }
}

}  // namespace testkit
