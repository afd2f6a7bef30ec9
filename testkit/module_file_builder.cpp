// Builds module files that hold nothing but resources.
#include "testkit/module_file_builder.h"

#include "testkit/bytes.h"
#include "testkit/resource_builder.h"

namespace testkit {
namespace {

// The directories of a resource tree: by type, by name, by language.
constexpr std::size_t SecondDirectory = 24;
constexpr std::size_t ThirdDirectory = 48;

}  // namespace

std::string PeFile(bool plus, std::size_t alignment, const std::vector<TranslatedBlock>& blocks)
{
    const std::size_t address = alignment < 4096 ? PeHeaders : 2 * alignment;
    const auto directory = [](std::size_t entries) { return std::string(12, '\0') + Half(0) + Half(entries); };
    std::string tree = directory(1) + Word(16) + Word(0x80000000 + SecondDirectory) + directory(1) + Word(1) +
                       Word(0x80000000 + ThirdDirectory) + directory(blocks.size());
    const std::size_t entries = tree.size() + 8 * blocks.size();
    std::size_t data = entries + 16 * blocks.size();
    for (std::size_t i = 0; i < blocks.size(); ++i)
        tree += Word(blocks[i].Language) + Word(entries + 16 * i);
    std::string content;
    for (const TranslatedBlock& block : blocks) {
        tree += Word(address + data + content.size()) + Word(block.Block.size()) + Word(0) + Word(0);
        content += block.Block;
        Pad(content, 4);
    }
    tree += content;

    const std::size_t fixedBytes = plus ? 112 : 96;
    std::string optional = Half(plus ? 0x20B : 0x10B);
    optional.resize(fixedBytes + 8 * 16);
    Put(optional, 32, Word(alignment) + Word(512));
    Put(optional, 60, Word(512));
    Put(optional, fixedBytes - 4, Word(16));
    Put(optional, fixedBytes + 16, Word(address) + Word(tree.size()));

    std::string file = "MZ";
    file.resize(64);
    Put(file, 60, Word(64));
    file += std::string("PE\0\0", 4) + Half(0x8664) + Half(2) + std::string(12, '\0') + Half(optional.size()) + Half(0);
    file += optional;
    std::string empty = ".text";
    empty.resize(40);
    Put(empty, 12, Word(alignment < 4096 ? 512 : alignment));
    std::string section = ".rsrc";
    section.resize(40);
    Put(section, 8, Word(tree.size()) + Word(address) + Word((tree.size() + 511) / 512 * 512) + Word(PeHeaders));
    file += empty + section;
    file.resize(PeHeaders);
    file += tree;
    Pad(file, 512);
    return file;
}

std::string ElfFile(bool wide, const std::string& resources, bool manySections)
{
    const auto number = [wide](std::size_t value) { return Word(value) + (wide ? Word(0) : ""); };
    const std::size_t headerBytes = wide ? 64 : 52;
    const std::size_t sectionBytes = wide ? 64 : 40;
    const std::string names = std::string("\0.shstrtab\0.rsrc\0", 17);
    const std::size_t namesAt = headerBytes + resources.size();
    std::string body = resources + names;
    Pad(body, 8);
    const auto section = [&](std::size_t name, std::size_t type, std::size_t at, std::size_t size, std::size_t link) {
        return Word(name) + Word(type) + number(0) + number(0) + number(at) + number(size) + Word(link) + Word(0) +
               number(1) + number(0);
    };
    std::string header = std::string(
                             "\x7F"
                             "ELF") +
                         static_cast<char>(wide ? 2 : 1) + "\1\1";
    header.resize(16);
    header += Half(3) + Half(wide ? 62 : 3) + Word(1) + number(0) + number(0) + number(headerBytes + body.size()) +
              Word(0) + Half(headerBytes) + Half(0) + Half(0) + Half(sectionBytes) + Half(manySections ? 0 : 3) +
              Half(manySections ? 0xFFFF : 2);
    return header + body + section(0, 0, 0, manySections ? 3 : 0, manySections ? 2 : 0) +
           section(11, 1, headerBytes, resources.size(), 0) + section(1, 3, namesAt, names.size(), 0);
}

std::string ElfFileWith(bool wide, const std::string& block)
{
    ResourceBuilder resources;
    resources.Add(ResourceBuilder::Number(16), ResourceBuilder::Number(1), 0x409, block);
    return ElfFile(wide, resources.Content);
}

}  // namespace testkit
