// The search for the start of a record reads blocks that overlap, so that a record's first fields lie in one block.
#include "records/tail.h"

#include "records/plain_run.h"
#include "records/record.h"

#include <algorithm>
#include <optional>
#include <string_view>
#include <vector>

namespace records {
namespace {

constexpr std::size_t BlockUnits = 16 * 1024;
constexpr std::size_t HeadUnits = 4 * 1024;  // the fields before the text are shorter

/// The first place after a line end, among the first `searched` units, at which a record starts.
std::optional<std::size_t> FirstRecord(std::u16string_view text, std::size_t searched)
{
    for (std::size_t i = 0; i < searched;) {
        i += FindUnit(text.data() + i, searched - i, u'\n') + 1;
        if (i <= searched && i > 1 && text[i - 2] == u'\r' && StartsRecord(text.substr(i)))
            return i;
    }
    return std::nullopt;
}

}  // namespace

std::uint64_t FindRecordStart(RandomSource& source, std::uint64_t offset, std::uint64_t limit)
{
    constexpr std::uint64_t lineEndBytes = 2 * sizeof(char16_t);
    offset -= offset % sizeof(char16_t);
    std::uint64_t place = offset - std::min(offset, lineEndBytes);
    std::vector<char16_t> buffer(BlockUnits + HeadUnits);
    for (;;) {
        const std::size_t bytes = source.ReadAt(place, buffer.data(), buffer.size() * sizeof(char16_t));
        const std::u16string_view text(buffer.data(), bytes / sizeof(char16_t));
        if (offset == 0 && place == 0 && StartsRecord(text))
            return 0;
        const std::size_t searched = std::min(text.size(), BlockUnits);
        if (const auto start = FirstRecord(text, searched))
            return std::min(place + *start * sizeof(char16_t), limit);
        if (text.size() <= BlockUnits || place >= limit)
            return limit;
        // The last unit is read again: it may be the first half of a line end.
        place += (searched - 1) * sizeof(char16_t);
    }
}

}  // namespace records
