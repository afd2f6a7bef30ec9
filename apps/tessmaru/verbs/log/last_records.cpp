// Reads a file from its end, in parts that start at a record, and keeps nothing but offsets.
#include "verbs/log/last_records.h"

#include "records/tail.h"
#include "verbs/log/log_source.h"

#include <algorithm>
#include <vector>

namespace tool {
namespace {

constexpr std::uint64_t PartBytes = 512 * 1024;

std::vector<std::uint64_t> WantedIn(platform::InputFile& file, std::uint64_t begin, std::uint64_t end, Filter& filter)
{
    std::vector<std::uint64_t> offsets;
    FilePart part(file, begin, end);
    records::RecordReader reader(part, begin);
    while (const auto entry = reader.Next()) {
        if (filter.Wants(*entry))
            offsets.push_back(entry->Offset);
    }
    return offsets;
}

}  // namespace

std::uint64_t StartOfLast(platform::InputFile& file, std::size_t count, Filter& filter)
{
    std::uint64_t end = file.Size();
    std::uint64_t place = end;
    while (place > 0) {
        place -= std::min(place, PartBytes);
        const std::uint64_t begin = place == 0 ? 0 : records::FindRecordStart(file, place, end);
        if (begin == end)
            continue;  // the part lies inside one record
        const std::vector<std::uint64_t> offsets = WantedIn(file, begin, end, filter);
        if (offsets.size() >= count)
            return offsets[offsets.size() - count];
        count -= offsets.size();
        end = begin;
    }
    return 0;
}

}  // namespace tool
