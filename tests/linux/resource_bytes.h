// Compiled resources, version blocks and the files that carry them, put together byte by byte.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace support {

inline std::string Half(std::size_t value)
{
    return {static_cast<char>(value), static_cast<char>(value >> 8)};
}

inline std::string Word(std::size_t value)
{
    return Half(value & 0xFFFF) + Half(value >> 16 & 0xFFFF);
}

inline std::string Units(std::string_view text)
{
    std::string units;
    for (const char character : text)
        units += Half(static_cast<unsigned char>(character));
    return units;
}

inline void Pad(std::string& bytes, std::size_t alignment)
{
    bytes.resize((bytes.size() + alignment - 1) / alignment * alignment);
}

inline void Put(std::string& bytes, std::size_t at, const std::string& part)
{
    bytes.replace(at, part.size(), part);
}

/// A compiled resource file.
class ResourceFile {
public:
    ResourceFile() { Add(Number(0), Number(0), 0, ""); }

    static std::string Number(unsigned id) { return Half(0xFFFF) + Half(id); }
    static std::string Name(std::string_view text) { return Units(text) + Half(0); }

    void Add(const std::string& type, const std::string& name, unsigned language, const std::string& data)
    {
        std::string header = type + name;
        Pad(header, 4);
        header += Word(0) + Half(0x30) + Half(language) + Word(0) + Word(0);
        Content += Word(data.size()) + Word(header.size() + 8) + header + data;
        Pad(Content, 4);
    }

    std::string Content;
};

/// A node of a version block.
inline std::string Node(std::string_view key, const std::string& value, std::size_t valueLength, bool isText,
                        const std::vector<std::string>& children = {})
{
    std::string node = Half(0) + Half(valueLength) + Half(isText) + Units(key) + Half(0);
    Pad(node, 4);
    node += value;
    for (const std::string& child : children) {
        Pad(node, 4);
        node += child;
    }
    Put(node, 0, Half(node.size()));
    return node;
}

inline std::string TextNode(std::string_view key, std::string_view text)
{
    return Node(key, Units(text) + Half(0), text.size() + 1, true);
}

inline std::string SectionNode(std::string_view name, const std::vector<std::string>& texts)
{
    return Node("StringFileInfo", "", 0, true, {Node(name, "", 0, true, texts)});
}

/// The numbers: file version 1.2.3.4, product version 5.6.7.8.
inline std::string FixedNumbers()
{
    std::string numbers =
        Word(0xFEEF04BD) + Word(0x10000) + Word(0x10002) + Word(0x30004) + Word(0x50006) + Word(0x70008);
    numbers.resize(52);
    return numbers;
}

inline std::string VersionBlock(const std::vector<std::string>& children)
{
    return Node("VS_VERSION_INFO", FixedNumbers(), 52, false, children);
}

inline std::string PlainBlock(std::string_view product = "a product")
{
    return VersionBlock({SectionNode("040904b0", {TextNode("ProductName", product), TextNode("Comments", "none")}),
                         Node("VarFileInfo", "", 0, true, {Node("Translation", Word(0x04B00409), 4, false)})});
}

/// A version block in a language.
struct Translated {
    unsigned Language;
    std::string Block;
};

constexpr std::size_t PeHeaders = 1024;      // where the resources start in the file
constexpr std::size_t FirstDirectory = 0;    // in them: by type
constexpr std::size_t SecondDirectory = 24;  // by name
constexpr std::size_t ThirdDirectory = 48;   // by language
constexpr std::size_t FirstLanguage = ThirdDirectory + 16;

/// A PE file that has nothing but headers and these blocks. Sections aligned to less than a page lie in memory as in
/// the file.
inline std::string PeFile(bool plus, std::size_t alignment, const std::vector<Translated>& blocks)
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
    for (const Translated& block : blocks) {
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

/// An ELF file whose only section of use is `.rsrc`. With `manySections` its numbers stand where those do that are too
/// large for the header.
inline std::string ElfFile(bool wide, const std::string& resources, bool manySections = false)
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

inline std::string ElfFileWith(bool wide, const std::string& block)
{
    ResourceFile resources;
    resources.Add(ResourceFile::Number(16), ResourceFile::Number(1), 0x409, block);
    return ElfFile(wide, resources.Content);
}

}  // namespace support
