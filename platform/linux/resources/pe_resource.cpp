// Walks the resource tree of a PE file: directories of types, of names and of languages, and then the data.
//
// A PE file refers to its own content by addresses of the loaded image. A section header maps a range of such addresses
// to a range of the file.
#include "resources/pe_resource.h"

#include "resources/resource_file.h"

#include <optional>

namespace {

using layer::Bytes;
using layer::ByteSource;
using layer::Extent;
using layer::ReadAt;

/// A range of the image's addresses whose bytes are in the file.
struct Section {
    std::uint32_t Address = 0;
    Extent Content;

    bool Contains(std::uint32_t address) const { return address >= Address && address - Address < Content.Size; }

    Extent DataAt(std::uint32_t address, std::uint64_t size) const { return Content.Part(address - Address, size); }
};

/// The values that are needed of the file's headers.
struct Headers {
    std::uint32_t Bytes = 0;  // of all headers, whose addresses in the image equal their offsets in the file
    std::uint64_t SectionTable = 0;
    unsigned SectionCount = 0;
    bool IsPageAligned = false;
    std::uint32_t ResourceAddress = 0;
};

/// Reads the headers: a DOS header with the offset of the PE header; the PE signature and the file header; the optional
/// header, whose fields up to the data directories differ in length between PE32 and PE32+.
/// @return false if this is not a PE file
bool ReadHeaders(ByteSource& file, Headers& headers)
{
    constexpr std::uint64_t peHeaderOffsetAt = 0x3C;  // e_lfanew
    constexpr std::size_t fileHeaderEnd = 24;         // from the signature on
    constexpr std::uint16_t pe32 = 0x10B;
    constexpr std::uint16_t pe32Plus = 0x20B;
    constexpr std::size_t maxFixedBytes = 112;
    constexpr std::uint32_t page = 4096;
    constexpr std::uint32_t resourceDirectory = 2;  // the third data directory; each is an address and a size

    const Bytes dos = file.View(0, peHeaderOffsetAt + 4);
    if (dos.empty() || ReadAt<std::uint16_t>(dos.data()) != 0x5A4D)  // "MZ"
        return false;
    const std::uint64_t at = ReadAt<std::uint32_t>(dos.data() + peHeaderOffsetAt);
    const Bytes fixed = file.View(at, fileHeaderEnd + maxFixedBytes);
    if (fixed.empty() || ReadAt<std::uint32_t>(fixed.data()) != 0x4550)  // "PE"
        return false;
    const std::uint16_t optionalBytes = ReadAt<std::uint16_t>(fixed.data() + 20);  // SizeOfOptionalHeader
    const std::byte* const optional = fixed.data() + fileHeaderEnd;
    const std::uint16_t kind = ReadAt<std::uint16_t>(optional);
    if (kind != pe32 && kind != pe32Plus)
        return false;
    // The data directories come after their count, the last of the fixed fields.
    const std::size_t directories = kind == pe32 ? 96 : 112;
    const std::uint32_t directoryCount = ReadAt<std::uint32_t>(optional + directories - 4);

    headers.SectionCount = ReadAt<std::uint16_t>(fixed.data() + 6);  // NumberOfSections
    headers.SectionTable = at + fileHeaderEnd + optionalBytes;
    headers.IsPageAligned = ReadAt<std::uint32_t>(optional + 32) >= page;  // SectionAlignment
    headers.Bytes = ReadAt<std::uint32_t>(optional + 60);                  // SizeOfHeaders
    const std::uint64_t entry = directories + std::uint64_t{8} * resourceDirectory;
    if (directoryCount > resourceDirectory && entry + 8 <= optionalBytes)
        file.Get(at + fileHeaderEnd + entry, headers.ResourceAddress);
    return true;
}

/// Finds the section that contains an address. The headers count as a section that starts at address 0.
std::optional<Section> FindSection(ByteSource& file, const Headers& headers, std::uint32_t address)
{
    constexpr std::size_t headerBytes = 40;
    constexpr std::uint32_t diskBlock = 512;
    if (address < headers.Bytes)
        return Section{0, {0, headers.Bytes}};
    for (unsigned i = 0; i < headers.SectionCount; ++i) {
        const Bytes header = file.View(headers.SectionTable + std::uint64_t{i} * headerBytes, headerBytes);
        if (header.empty())
            break;
        const auto virtualAddress = ReadAt<std::uint32_t>(header.data() + 12);
        const auto rawBytes = ReadAt<std::uint32_t>(header.data() + 16);
        const auto rawOffset = ReadAt<std::uint32_t>(header.data() + 20);
        // The loader rounds the offsets of a page-aligned image down to a block of the disk.
        const std::uint32_t start = headers.IsPageAligned ? rawOffset / diskBlock * diskBlock : rawOffset;
        const Section section{virtualAddress, {start, rawBytes}};
        if (section.Contains(address))
            return section;
    }
    return std::nullopt;
}

/// The resource tree. Offsets inside it count from its start, and it lies in one section.
class Tree {
public:
    Tree(ByteSource& file, const Extent& content) : File(file), Content(content) {}

    /// Finds the entry of the highest rank in a directory.
    /// @param directory  offset of the directory in the tree
    /// @param rank       maps the id of an entry to its rank; entries of a rank below 1 are ignored
    /// @return the offset of the data entry, or of the next directory with SubdirectoryFlag
    template <class Rank>
    std::optional<std::uint32_t> Find(std::uint32_t directory, Rank rank) const
    {
        constexpr std::uint64_t headerBytes = 16;
        constexpr std::uint64_t entryBytes = 8;
        // The last fields of a directory's header: the number of entries with a name in letters, which come first, and
        // of those with a numeric id.
        std::uint16_t counts[2];
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

    /// Reads a value at an offset in the tree. @return false if the tree ends before it
    template <class Value>
    bool Get(std::uint64_t at, Value& value) const
    {
        const Extent part = Content.Part(at, sizeof value);
        return part.Size == sizeof value && File.Get(part.Start, value);
    }

    static constexpr std::uint32_t SubdirectoryFlag = 0x80000000;

private:
    ByteSource& File;
    const Extent Content;
};

/// A leaf of the tree: the address and the size of the data. The data may be in another section than the tree.
struct DataEntry {
    std::uint32_t Address;
    std::uint32_t Size;
};

/// Follows the three levels of the tree.
/// @return ERROR_SUCCESS, or the error of the level at which the search ended
DWORD FindData(const Tree& tree, WORD type, WORD name, DataEntry& data)
{
    const auto equalTo = [](WORD wanted) {
        return [wanted](WORD id) { return id == wanted ? layer::BestLanguageRank : 0; };
    };
    const std::optional<std::uint32_t> names = tree.Find(0, equalTo(type));
    if (!names || (*names & Tree::SubdirectoryFlag) == 0)
        return ERROR_RESOURCE_TYPE_NOT_FOUND;
    const std::optional<std::uint32_t> languages = tree.Find(*names & ~Tree::SubdirectoryFlag, equalTo(name));
    if (!languages || (*languages & Tree::SubdirectoryFlag) == 0)
        return ERROR_RESOURCE_NAME_NOT_FOUND;
    const std::optional<std::uint32_t> entry = tree.Find(*languages & ~Tree::SubdirectoryFlag, layer::LanguageRank);
    if (!entry || (*entry & Tree::SubdirectoryFlag) != 0 || !tree.Get(*entry, data))
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
    const std::optional<Section> treeSection = FindSection(file, headers, headers.ResourceAddress);
    if (!treeSection)
        return ERROR_RESOURCE_DATA_NOT_FOUND;
    DataEntry data{};
    const Tree tree(file, treeSection->DataAt(headers.ResourceAddress, treeSection->Content.Size));
    if (const DWORD error = FindData(tree, type, name, data); error != ERROR_SUCCESS)
        return error;
    const std::optional<Section> section =
        treeSection->Contains(data.Address) ? treeSection : FindSection(file, headers, data.Address);
    if (!section)
        return ERROR_RESOURCE_DATA_NOT_FOUND;
    found = section->DataAt(data.Address, data.Size);
    return ERROR_SUCCESS;
}
