// The resource tree of a PE file: three directories above the data, by type, name and language. Places in the file are
// told as addresses of the loaded image, and the sections say where their bytes stand.
#include "resources/pe_resource.h"

#include "resources/resource_file.h"

namespace {

using layer::Bytes;
using layer::ByteSource;
using layer::Extent;
using layer::ReadAt;

/// A run of the image's addresses whose bytes are in the file.
struct Section {
    std::uint32_t Address = 0;
    Extent Content;

    bool Holds(std::uint32_t address) const { return address >= Address && address - Address < Content.Size; }

    Extent From(std::uint32_t address, std::uint64_t size) const { return Content.Part(address - Address, size); }
};

struct Headers {
    std::uint32_t Bytes = 0;  // of all headers, which lie in the image as in the file
    std::uint64_t Sections = 0;
    unsigned SectionCount = 0;
    bool InPages = false;
    std::uint32_t ResourceAddress = 0;
};

/// Reads what is needed of the headers; false if this is no PE file.
bool ReadHeaders(ByteSource& file, Headers& headers)
{
    constexpr std::uint64_t newHeaderAt = 0x3C;
    constexpr std::size_t fileHeaderEnd = 24;  // with the signature
    constexpr std::uint16_t plain = 0x10B;
    constexpr std::uint16_t plus = 0x20B;
    constexpr std::size_t longestFixedPart = 112;
    constexpr std::uint32_t page = 4096;
    constexpr std::uint32_t resourceDirectory = 2;

    const Bytes dos = file.View(0, newHeaderAt + 4);
    if (dos.empty() || ReadAt<std::uint16_t>(dos.data()) != 0x5A4D)
        return false;
    const std::uint64_t at = ReadAt<std::uint32_t>(dos.data() + newHeaderAt);
    const Bytes fixed = file.View(at, fileHeaderEnd + longestFixedPart);
    if (fixed.empty() || ReadAt<std::uint32_t>(fixed.data()) != 0x4550)
        return false;
    const std::uint16_t optionalBytes = ReadAt<std::uint16_t>(fixed.data() + 20);
    const std::byte* const optional = fixed.data() + fileHeaderEnd;
    const std::uint16_t kind = ReadAt<std::uint16_t>(optional);
    if (kind != plain && kind != plus)
        return false;
    const std::size_t directories = kind == plain ? 96 : 112;
    const std::uint32_t directoryCount = ReadAt<std::uint32_t>(optional + directories - 4);

    headers.SectionCount = ReadAt<std::uint16_t>(fixed.data() + 6);
    headers.Sections = at + fileHeaderEnd + optionalBytes;
    headers.InPages = ReadAt<std::uint32_t>(optional + 32) >= page;
    headers.Bytes = ReadAt<std::uint32_t>(optional + 60);
    const std::uint64_t entry = directories + std::uint64_t{8} * resourceDirectory;
    if (directoryCount > resourceDirectory && entry + 8 <= optionalBytes)
        file.Get(at + fileHeaderEnd + entry, headers.ResourceAddress);
    return true;
}

/// The section that has the bytes of an address.
std::optional<Section> FindSection(ByteSource& file, const Headers& headers, std::uint32_t address)
{
    constexpr std::size_t headerBytes = 40;
    constexpr std::uint32_t diskBlock = 512;
    if (address < headers.Bytes)
        return Section{0, {0, headers.Bytes}};
    for (unsigned i = 0; i < headers.SectionCount; ++i) {
        const Bytes header = file.View(headers.Sections + std::uint64_t{i} * headerBytes, headerBytes);
        if (header.empty())
            break;
        const auto start = ReadAt<std::uint32_t>(header.data() + 20);
        const Section section{
            ReadAt<std::uint32_t>(header.data() + 12),
            // An image that is loaded page by page has its sections at whole blocks, whatever it says.
            {headers.InPages ? start / diskBlock * diskBlock : start, ReadAt<std::uint32_t>(header.data() + 16)}};
        if (section.Holds(address))
            return section;
    }
    return std::nullopt;
}

/// The resource tree, which lies in one section.
class Tree {
public:
    Tree(ByteSource& file, const Extent& content) : File(file), Content(content) {}

    /// What the entry of the highest rank in a directory leads to, with TreeMark for a further directory.
    /// Ranks below 1 do not count.
    template <class Rank>
    std::optional<std::uint32_t> Find(std::uint32_t directory, Rank rank) const
    {
        constexpr std::uint64_t headerBytes = 16;
        constexpr std::uint64_t entryBytes = 8;
        std::uint16_t counts[2];  // entries with a name in letters, which come first, and with a number
        if (!Get(directory + headerBytes - sizeof counts, counts))
            return std::nullopt;
        std::optional<std::uint32_t> best;
        int bestRank = 0;
        struct {
            std::uint32_t Id;
            std::uint32_t Target;
        } entry;
        for (std::uint64_t i = counts[0]; i < std::uint64_t{counts[0]} + counts[1]; ++i) {
            if (bestRank == layer::BestLanguageRank || !Get(directory + headerBytes + i * entryBytes, entry))
                break;
            const int rankOfEntry = entry.Id <= 0xFFFF ? rank(static_cast<WORD>(entry.Id)) : 0;
            if (rankOfEntry > bestRank) {
                best = entry.Target;
                bestRank = rankOfEntry;
            }
        }
        return best;
    }

    template <class Value>
    bool Get(std::uint64_t at, Value& value) const
    {
        const Extent part = Content.Part(at, sizeof value);
        return part.Size == sizeof value && File.Get(part.Start, value);
    }

    static constexpr std::uint32_t TreeMark = 0x80000000;

private:
    ByteSource& File;
    const Extent Content;
};

/// The record of the data of a resource: its address and its size.
struct DataEntry {
    std::uint32_t Address;
    std::uint32_t Size;
};

DWORD FindData(const Tree& tree, WORD type, WORD name, DataEntry& data)
{
    const auto exactly = [](WORD wanted) {
        return [wanted](WORD id) { return id == wanted ? layer::BestLanguageRank : 0; };
    };
    const std::optional<std::uint32_t> names = tree.Find(0, exactly(type));
    if (!names || (*names & Tree::TreeMark) == 0)
        return ERROR_RESOURCE_TYPE_NOT_FOUND;
    const std::optional<std::uint32_t> languages = tree.Find(*names & ~Tree::TreeMark, exactly(name));
    if (!languages || (*languages & Tree::TreeMark) == 0)
        return ERROR_RESOURCE_NAME_NOT_FOUND;
    const std::optional<std::uint32_t> entry = tree.Find(*languages & ~Tree::TreeMark, layer::LanguageRank);
    if (!entry || (*entry & Tree::TreeMark) != 0 || !tree.Get(*entry, data))
        return ERROR_RESOURCE_LANG_NOT_FOUND;
    return ERROR_SUCCESS;
}

}  // namespace

DWORD layer::FindPeResource(ByteSource& file, WORD type, WORD name, Extent& found)
{
    Headers headers;
    if (!ReadHeaders(file, headers))
        return ERROR_BAD_EXE_FORMAT;
    if (headers.ResourceAddress == 0)
        return ERROR_RESOURCE_DATA_NOT_FOUND;
    const std::optional<Section> home = FindSection(file, headers, headers.ResourceAddress);
    if (!home)
        return ERROR_RESOURCE_DATA_NOT_FOUND;
    DataEntry data{};
    const Tree tree(file, home->From(headers.ResourceAddress, home->Content.Size));
    if (const DWORD error = FindData(tree, type, name, data); error != ERROR_SUCCESS)
        return error;
    const std::optional<Section> section = home->Holds(data.Address) ? home : FindSection(file, headers, data.Address);
    if (!section)
        return ERROR_RESOURCE_DATA_NOT_FOUND;
    found = section->From(data.Address, data.Size);
    return ERROR_SUCCESS;
}
