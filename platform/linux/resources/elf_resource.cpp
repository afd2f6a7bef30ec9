// Finds the section of an ELF file that holds a compiled resource file.
//
// The ELF header has the place of the section headers; each section header has the place of its section and the offset
// of its name in a section of names.
#include "resources/elf_resource.h"

#include "resources/resource_file.h"

#include <elf.h>

namespace {

using layer::Bytes;
using layer::ByteSource;
using layer::Extent;

constexpr char SectionName[] = ".rsrc";
// A count of 64 bits is of the file's own making, and a hole in a file costs nothing: without a limit, a small file
// could keep the reader busy for minutes.
constexpr std::uint64_t MaxSections = 0xFFFF;

/// @tparam Header, Section  the records of the file's class, 32 or 64 bits
template <class Header, class Section>
std::optional<Extent> FindSection(ByteSource& file)
{
    Header header{};
    if (!file.Get(0, header) || header.e_shoff == 0 || header.e_shentsize != sizeof(Section))
        return std::nullopt;
    const auto readSection = [&](std::uint64_t index, Section& record) {
        return file.Get(std::uint64_t{header.e_shoff} + index * sizeof record, record);
    };
    // Section 0 is no section. A count or an index that does not fit into 16 bits of the header is in its record
    // instead.
    Section first{};
    if (!readSection(0, first))
        return std::nullopt;
    const std::uint64_t count =
        header.e_shnum != 0 ? header.e_shnum : std::min(std::uint64_t{first.sh_size}, MaxSections);
    Section names{};
    if (!readSection(header.e_shstrndx != SHN_XINDEX ? header.e_shstrndx : first.sh_link, names))
        return std::nullopt;
    const Extent nameTable{names.sh_offset, names.sh_size};
    Section candidate{};
    for (std::uint64_t i = 1; i < count && readSection(i, candidate); ++i) {
        // The comparison includes the terminator, so a longer name with this start is not found.
        const Extent name = nameTable.Part(candidate.sh_name, sizeof SectionName);
        if (candidate.sh_type != SHT_PROGBITS || name.Size != sizeof SectionName)
            continue;
        const Bytes text = file.View(name.Start, sizeof SectionName);
        if (!text.empty() && std::memcmp(text.data(), SectionName, sizeof SectionName) == 0)
            return Extent{candidate.sh_offset, candidate.sh_size};
    }
    return std::nullopt;
}

}  // namespace

DWORD layer::FindElfResource(ByteSource& file, WORD type, WORD name, Extent& found)
{
    unsigned char ident[EI_NIDENT]{};
    if (!file.Get(0, ident) || std::memcmp(ident, ELFMAG, SELFMAG) != 0 || ident[EI_DATA] != ELFDATA2LSB)
        return ERROR_BAD_EXE_FORMAT;
    const std::optional<Extent> section = ident[EI_CLASS] == ELFCLASS64 ? FindSection<Elf64_Ehdr, Elf64_Shdr>(file)
                                                                        : FindSection<Elf32_Ehdr, Elf32_Shdr>(file);
    if (!section)
        return ERROR_RESOURCE_DATA_NOT_FOUND;
    const std::optional<Extent> data = FindResource(file, *section, type, name);
    if (!data)
        return ERROR_RESOURCE_TYPE_NOT_FOUND;
    found = *data;
    return ERROR_SUCCESS;
}
