// A record is a line of six fields. Each is checked by its form, so that half a record, or one inside
// another, shows as torn.
#include "log_records.h"

#include "terminal.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <fstream>
#include <iterator>
#include <optional>
#include <system_error>

namespace tools {
namespace {

constexpr std::string_view Separator = " | ";
constexpr std::string_view LineEnd = "\r\n";
constexpr std::array<std::string_view, 5> Levels = {" ERR", "WARN", "INFO", "    ", "DBUG"};

void AppendUtf8(std::string& text, std::uint32_t point)
{
    const auto put = [&text](std::uint32_t byte) { text += static_cast<char>(byte); };
    if (point < 0x80) {
        put(point);
    } else if (point < 0x800) {
        put(0xC0 | (point >> 6));
        put(0x80 | (point & 0x3F));
    } else if (point < 0x10000) {
        put(0xE0 | (point >> 12));
        put(0x80 | ((point >> 6) & 0x3F));
        put(0x80 | (point & 0x3F));
    } else {
        put(0xF0 | (point >> 18));
        put(0x80 | ((point >> 12) & 0x3F));
        put(0x80 | ((point >> 6) & 0x3F));
        put(0x80 | (point & 0x3F));
    }
}

std::string ReadBytes(const std::filesystem::path& path)
{
    std::ifstream file(path, std::ios::binary);
    if (!file)
        throw std::system_error(errno, std::generic_category(), path.string());
    return {std::istreambuf_iterator<char>(file), {}};
}

/// Takes what stands in front of the next separator off `rest`.
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
    constexpr std::string_view picture = " 00:00:00.000";
    if (field.size() <= picture.size())
        return false;
    field.remove_prefix(field.size() - picture.size());
    return std::equal(field.begin(), field.end(), picture.begin(), [](char unit, char wanted) {
        return wanted == '0' ? unit >= '0' && unit <= '9' : unit == wanted;
    });
}

bool IsNumber(std::string_view field)
{
    return field.size() == 8 && field.find_first_not_of("0123456789abcdef") == std::string_view::npos;
}

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

}  // namespace

std::string DecodeUtf16(std::string_view bytes)
{
    const auto byteAt = [bytes](std::size_t at) -> std::uint32_t { return static_cast<unsigned char>(bytes[at]); };
    const auto unitAt = [&](std::size_t at) -> std::uint32_t {
        return at + 1 < bytes.size() ? byteAt(at) | (byteAt(at + 1) << 8) : 0;
    };
    std::string text;
    text.reserve(bytes.size() / 2);
    for (std::size_t at = 0; at < bytes.size(); at += 2) {
        const std::uint32_t unit = unitAt(at);
        const std::uint32_t next = unitAt(at + 2);
        if ((unit & 0xFC00) == 0xD800 && (next & 0xFC00) == 0xDC00) {
            AppendUtf8(text, 0x10000 + ((unit & 0x3FF) << 10) + (next & 0x3FF));
            at += 2;
        } else {
            const bool broken = at + 1 == bytes.size() || (unit & 0xF800) == 0xD800;
            AppendUtf8(text, broken ? 0xFFFD : unit);
        }
    }
    return text;
}

LogFile::LogFile(const std::filesystem::path& path) : Content(DecodeUtf16(ReadBytes(path)))
{
    std::string_view rest = Content;
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

void PrintLog(const std::filesystem::path& path)
{
    PrepareTerminal();
    const LogFile log(path);
    for (const Record& record : log.Records())
        std::printf("%.*s\n", static_cast<int>(record.Line.size()), record.Line.data());
}

}  // namespace tools
