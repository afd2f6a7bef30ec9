// Reads message tables: a count of blocks, the blocks, and their entries. A malformed table ends at its first part that
// is not valid.
#include "messages/message_table.h"

#include "resources/resource_file.h"

#include <optional>

namespace {

constexpr WORD MessageTable = 11;
constexpr WORD TableName = 1;
constexpr WORD UnicodeText = 1;

struct Block {
    DWORD LowNumber;
    DWORD HighNumber;
    DWORD FirstEntry;  // from the start of the table
};

struct EntryHeader {
    WORD Bytes;  // with this header
    WORD Flags;
};

template <class Value>
bool ReadAt(layer::Bytes bytes, std::size_t at, Value& value)
{
    if (at > bytes.size() || bytes.size() - at < sizeof value)
        return false;
    std::memcpy(&value, bytes.data() + at, sizeof value);
    return true;
}

std::optional<Block> FindBlock(layer::Bytes table, DWORD number)
{
    DWORD count = 0;
    ReadAt(table, 0, count);
    Block block{};
    for (std::size_t i = 0; i < count && ReadAt(table, sizeof count + i * sizeof block, block); ++i) {
        if (number >= block.LowNumber && number <= block.HighNumber)
            return block;
    }
    return std::nullopt;
}

/// The entry of a number in its block; each entry says where the next one starts.
std::optional<layer::Bytes> FindEntry(layer::Bytes table, const Block& block, DWORD number, WORD& flags)
{
    std::size_t at = block.FirstEntry;
    EntryHeader header{};
    for (DWORD i = block.LowNumber;; ++i) {
        if (!ReadAt(table, at, header) || header.Bytes < sizeof header || header.Bytes > table.size() - at)
            return std::nullopt;
        if (i == number)
            break;
        at += header.Bytes;
    }
    flags = header.Flags;
    return table.subspan(at + sizeof header, header.Bytes - sizeof header);
}

void TakeWide(layer::Bytes bytes, layer::Text& text)
{
    text.resize(bytes.size() / sizeof(WCHAR));
    std::memcpy(text.data(), bytes.data(), text.size() * sizeof(WCHAR));
}

void TakeNarrow(layer::Bytes bytes, layer::Text& text)
{
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
        TakeWide(*entry, text);
    else
        TakeNarrow(*entry, text);
    return ERROR_SUCCESS;
}
