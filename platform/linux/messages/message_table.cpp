// Reads message tables, which are resources of modules.
//
// A table is a count of blocks, the blocks, and the entries. A block is a range of message numbers and the offset of
// the entry of the first one; the entries of a block are in sequence. An entry is its length, flags and a text, which
// is wide or in the active code page. A malformed table ends at its first invalid part.
#include "messages/message_table.h"

#include "resources/resource_file.h"

#include <cstring>
#include <optional>

namespace {

constexpr WORD MessageTable = 11;  // the type of the resource
constexpr WORD TableName = 1;      // the only name in use for this type
constexpr WORD UnicodeText = 1;    // the flags of an entry with a wide text

struct Block {
    DWORD LowNumber;
    DWORD HighNumber;
    DWORD FirstEntry;  // from the start of the table
};

struct EntryHeader {
    WORD Bytes;  // this header included
    WORD Flags;
};

/// Finds the block whose range contains a message number.
std::optional<Block> FindBlock(layer::Bytes table, DWORD number)
{
    layer::MemorySource source(table);
    DWORD count = 0;
    source.Get(0, count);
    Block block{};
    for (std::uint64_t i = 0; i < count && source.Get(sizeof count + i * sizeof block, block); ++i) {
        if (number >= block.LowNumber && number <= block.HighNumber)
            return block;
    }
    return std::nullopt;
}

/// Finds the text of a message in its block. Entries have different lengths, so they are passed one by one; an entry
/// has at least a header, so this ends at the table's end at the latest.
/// @param flags  receives the entry's flags
std::optional<layer::Bytes> FindEntry(layer::Bytes table, const Block& block, DWORD number, WORD& flags)
{
    layer::MemorySource source(table);
    std::size_t at = block.FirstEntry;
    EntryHeader header{};
    for (DWORD i = block.LowNumber;; ++i) {
        if (!source.Get(at, header) || header.Bytes < sizeof header || header.Bytes > table.size() - at)
            return std::nullopt;
        if (i == number)
            break;
        at += header.Bytes;
    }
    flags = header.Flags;
    return table.subspan(at + sizeof header, header.Bytes - sizeof header);
}

void CopyWide(layer::Bytes bytes, layer::Text& text)
{
    text.resize(bytes.size() / sizeof(WCHAR));
    std::memcpy(text.data(), bytes.data(), text.size() * sizeof(WCHAR));
}

void CopyNarrow(layer::Bytes bytes, layer::Text& text)
{
    // One unit per byte is enough: no character has more units than bytes.
    const auto* const narrow = reinterpret_cast<const char*>(bytes.data());
    text.resize(bytes.size());
    text.resize(static_cast<std::size_t>(MultiByteToWideChar(CP_ACP, 0, narrow, static_cast<int>(bytes.size()),
                                                             text.data(), static_cast<int>(text.size()))));
}

}  // namespace

DWORD layer::FindMessage(Bytes resources, DWORD number, Text& text)
{
    if (resources.empty())
        return ERROR_RESOURCE_DATA_NOT_FOUND;
    const std::optional<Bytes> table = FindResource(resources, MessageTable, TableName);
    if (!table)
        return ERROR_RESOURCE_TYPE_NOT_FOUND;
    const std::optional<Block> block = FindBlock(*table, number);
    WORD flags = 0;
    const std::optional<Bytes> entry = block ? FindEntry(*table, *block, number, flags) : std::nullopt;
    if (!entry)
        return ERROR_MR_MID_NOT_FOUND;
    if (flags == UnicodeText)
        CopyWide(*entry, text);
    else
        CopyNarrow(*entry, text);
    return ERROR_SUCCESS;
}
