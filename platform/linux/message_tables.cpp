// The sentences stand in two tables, one row each: the low words of system errors in win32_messages.def, the whole
// values of other codes in hresult_messages.def. The texts of a table lie behind each other, so that nothing has to be
// relocated.
#include "message_tables.h"

#include <algorithm>
#include <array>
#include <cstring>

namespace {

#define MESSAGE(code, text) code,
constexpr DWORD hresultCodes[] = {
#include "hresult_messages.def"
};
constexpr DWORD win32Codes[] = {
#include "win32_messages.def"
};
#undef MESSAGE

#define MESSAGE(code, text) text "\0"
constexpr char hresultTexts[] =
#include "hresult_messages.def"
    ;
constexpr char win32Texts[] =
#include "win32_messages.def"
    ;
#undef MESSAGE

/// Where each text starts, and where the last one ends.
template <std::size_t Count, std::size_t Bytes>
constexpr auto StartsOf(const DWORD (&)[Count], const char (&texts)[Bytes])
{
    static_assert(Bytes <= 0x10000);
    std::array<std::uint16_t, Count + 1> starts{};
    std::size_t text = 0;
    for (std::size_t at = 0; at + 1 < Bytes; ++at) {
        if (texts[at] == '\0')
            starts[++text] = static_cast<std::uint16_t>(at + 1);
    }
    return starts;
}

constexpr auto hresultStarts = StartsOf(hresultCodes, hresultTexts);
constexpr auto win32Starts = StartsOf(win32Codes, win32Texts);

template <std::size_t Count>
constexpr bool AreSorted(const DWORD (&codes)[Count])
{
    return std::adjacent_find(codes, codes + Count, std::greater_equal<>()) == codes + Count;
}

static_assert(AreSorted(hresultCodes) && AreSorted(win32Codes));
static_assert(std::string_view(hresultTexts, sizeof hresultTexts).find('%') == std::string_view::npos &&
                  std::string_view(win32Texts, sizeof win32Texts).find('%') == std::string_view::npos,
              "a text with a mark would count as not given");

template <std::size_t Count>
std::string_view Find(DWORD code, const DWORD (&codes)[Count], const std::array<std::uint16_t, Count + 1>& starts,
                      const char* texts)
{
    const auto* const found = std::lower_bound(codes, codes + Count, code);
    if (found == codes + Count || *found != code)
        return {};
    const std::size_t row = static_cast<std::size_t>(found - codes);
    return {texts + starts[row], static_cast<std::size_t>(starts[row + 1] - starts[row] - 1)};
}

// --- Message tables of modules: a count of blocks, the blocks, and their entries ---

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

std::string_view layer::SystemMessage(DWORD code)
{
    constexpr DWORD facilityMask = 0x1FFF0000;
    constexpr DWORD win32Facility = 0x00070000;
    constexpr DWORD lowWord = 0xFFFF;
    const std::string_view whole = Find(code, hresultCodes, hresultStarts, hresultTexts);
    if (!whole.empty())
        return whole;
    if (code > lowWord && (code & facilityMask) != win32Facility)
        return {};
    return Find(code & lowWord, win32Codes, win32Starts, win32Texts);
}

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
