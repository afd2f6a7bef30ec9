// Reads compiled resource files, which are a sequence of entries without an index.
//
// An entry is the size of its data, the size of its header, the rest of the header and the data. The rest of the header
// is a type, a name, padding to a multiple of four, and a fixed part. A type or a name is either the mark 0xFFFF and a
// number, or a text with a terminator. Each entry starts at a multiple of four.
#include "resources/resource_file.h"

namespace {

using layer::Bytes;
using layer::ByteSource;
using layer::Extent;
using layer::ReadAt;

constexpr std::size_t EntryAlignment = 4;
constexpr std::uint16_t NumberMark = 0xFFFF;
constexpr unsigned MaxEntries = 0xFFFF;  // bounds the time for a file that was made to have many

/// One entry. A type or name in letters has no value: only numeric ones are ever searched for.
struct Entry {
    std::optional<WORD> Type;
    std::optional<WORD> Name;
    WORD Language = 0;
    Extent Data;
};

/// Removes a type or a name from the front of a header.
/// @return false if it has no end
bool TakeId(Bytes& header, std::optional<WORD>& id)
{
    if (header.size() >= 4 && ReadAt<std::uint16_t>(header.data()) == NumberMark) {
        id = ReadAt<std::uint16_t>(header.data() + 2);
        header = header.subspan(4);
        return true;
    }
    while (header.size() >= 2) {
        const auto unit = ReadAt<std::uint16_t>(header.data());
        header = header.subspan(2);
        if (unit == 0)
            return true;
    }
    return false;
}

/// Reads the header of an entry after its two sizes.
/// @return false if it is malformed
bool ReadHeader(Bytes header, Entry& entry)
{
    constexpr std::size_t fixedEnd = 16;  // data version, flags, language, version, characteristics
    constexpr std::size_t languageAt = 6;
    if (!TakeId(header, entry.Type) || !TakeId(header, entry.Name))
        return false;
    header = header.subspan(header.size() % EntryAlignment);  // padding: the header ends at a multiple of four
    if (header.size() < fixedEnd)
        return false;
    entry.Language = ReadAt<std::uint16_t>(header.data() + languageAt);
    return true;
}

/// Removes an entry from the front of a file.
/// @param file  the range that is left of the file
/// @return false at the file's end or if the entry is malformed
bool TakeEntry(ByteSource& source, Extent& file, Entry& entry)
{
    struct {
        std::uint32_t Data;
        std::uint32_t Header;  // this record included
    } bytes{};
    if (file.Size < sizeof bytes || !source.Get(file.Start, bytes))
        return false;
    if (bytes.Header <= sizeof bytes || bytes.Header % EntryAlignment != 0 ||
        std::uint64_t{bytes.Header} + bytes.Data > file.Size)
        return false;
    entry = {};
    // A header that is longer than a view gives an empty one and counts as malformed.
    if (!ReadHeader(source.View(file.Start + sizeof bytes, bytes.Header - sizeof bytes), entry))
        return false;
    entry.Data = file.Part(bytes.Header, bytes.Data);
    file = file.Part(layer::AlignUp(std::uint64_t{bytes.Header} + bytes.Data, EntryAlignment), file.Size);
    return true;
}

}  // namespace

namespace layer {

std::optional<Extent> FindResource(ByteSource& source, const Extent& file, WORD type, WORD name)
{
    std::optional<Extent> best;
    int bestRank = 0;
    Entry entry;
    Extent rest = file;
    for (unsigned i = 0; i < MaxEntries && bestRank < BestLanguageRank && TakeEntry(source, rest, entry); ++i) {
        if (entry.Type == type && entry.Name == name && LanguageRank(entry.Language) > bestRank) {
            best = entry.Data;
            bestRank = LanguageRank(entry.Language);
        }
    }
    return best;
}

std::optional<Bytes> FindResource(Bytes file, WORD type, WORD name)
{
    MemorySource source(file);
    const std::optional<Extent> found = FindResource(source, {0, file.size()}, type, name);
    if (!found)
        return std::nullopt;
    return file.subspan(static_cast<std::size_t>(found->Start), static_cast<std::size_t>(found->Size));
}

Bytes FindString(Bytes file, UINT row)
{
    // A string table is a resource of 16 rows, each a count of units and the units. Table n has the rows from
    // (n - 1) * 16 on.
    constexpr WORD StringTable = 6;
    constexpr UINT RowsPerBlock = 16;
    if (row > 0xFFFF)
        return {};
    Bytes block = FindResource(file, StringTable, static_cast<WORD>(row / RowsPerBlock + 1)).value_or(Bytes{});
    for (UINT i = 0; block.size() >= sizeof(std::uint16_t); ++i) {
        const std::size_t bytes = std::size_t{ReadAt<std::uint16_t>(block.data())} * sizeof(WCHAR);
        block = block.subspan(sizeof(std::uint16_t));
        if (bytes > block.size())
            return {};
        if (i == row % RowsPerBlock)
            return block.first(bytes);
        block = block.subspan(bytes);
    }
    return {};
}

}  // namespace layer
