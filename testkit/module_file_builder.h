// Builds module files that hold nothing but resources: PE files and ELF files.
//
//     WriteFile(folder / "image.dll", PeFile(true, 4096, {{0x409, PlainBlock()}}));
#pragma once

#include <cstddef>
#include <string>
#include <vector>

namespace testkit {

/// A version block in a language.
struct TranslatedBlock {
    unsigned Language;
    std::string Block;
};

constexpr std::size_t PeHeaders = 1024;  // where the resources start in a PE file

/// A PE file with these blocks. @param plus PE32+ @param alignment of sections; those that are aligned to less than a
/// page are in memory where they are in the file
std::string PeFile(bool plus, std::size_t alignment, const std::vector<TranslatedBlock>& blocks);

/// An ELF file with a section `.rsrc`. @param wide 64 bits @param manySections the numbers of the sections are in the
/// place for those that are too large for the header
std::string ElfFile(bool wide, const std::string& resources, bool manySections = false);

/// An ELF file with this version block in English.
std::string ElfFileWith(bool wide, const std::string& block);

}  // namespace testkit
