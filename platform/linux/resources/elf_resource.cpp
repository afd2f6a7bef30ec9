// The section of an ELF file that holds a compiled resource file.
#include "resources/elf_resource.h"

#include "resources/resource_file.h"

#include <elf.h>

namespace {

using layer::Bytes;
using layer::ByteSource;
using layer::Extent;

constexpr char SectionName[] = ".rsrc";

template <class Header, class Section>
std::optional<Extent> FindSection(ByteSource& file)
{
    Header header{};
    if (!file.Get(0, header) || header.e_shoff == 0 || header.e_shentsize != sizeof(Section))
        return std::nullopt;
    const auto section = [&](std::uint64_t index, Section& read) {
        return file.Get(std::uint64_t{header.e_shoff} + index * sizeof read, read);
    };
    // Numbers that do not fit the header stand in the first section, which is none.
    Section first{};
    if (!section(0, first))
        return std::nullopt;
    const std::uint64_t count = header.e_shnum != 0 ? header.e_shnum : std::uint64_t{first.sh_size};
    Section names{};
    if (!section(header.e_shstrndx != SHN_XINDEX ? header.e_shstrndx : first.sh_link, names))
        return std::nullopt;
    const Extent nameTable{names.sh_offset, names.sh_size};
    Section candidate{};
    for (std::uint64_t i = 1; i < count && section(i, candidate); ++i) {
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
