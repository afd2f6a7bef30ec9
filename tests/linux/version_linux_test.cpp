// Version blocks in files made here, malformed ones among them, and what the layer says of files and modules.
#include "fail_allocation.h"
#include "resource_bytes.h"
#include "resources/version_block.h"
#include "resources/version_file.h"
#include "support.h"
#include "tessmaru/version.h"

#include <gtest/gtest.h>

#include <memory>
#include <sys/stat.h>

namespace {

using namespace utility::literals;
using support::ElfFile;
using support::ElfFileWith;
using support::Half;
using support::Narrow;
using support::Node;
using support::PeFile;
using support::PlainBlock;
using support::Put;
using support::SectionNode;
using support::TextNode;
using support::VersionBlock;
using support::Word;
using utility::CVersionInfo;

constexpr char numbers[] = "01,02,03,04 05,06,07,08";

/// What CVersionInfo reads of a file of this content: the numbers, and the product of a section.
struct Answers {
    std::string Numbers;
    std::string Product;
};

std::string ProductOf(const CVersionInfo& version)
{
    return Narrow(version.getVersionInfoLanguageValue(CVersionInfo::eLANG_PRODUCT_NAME, 0x0409, 0x04B0));
}

Answers Ask(const std::string& content)
{
    const support::ScratchFolder folder;
    support::WriteFile(folder / "module", content);
    CVersionInfo version;
    version.setModule(support::Wide(folder / "module"));
    return {Narrow(version.getVersionInfoFixedValue(CVersionInfo::eFIXED_FILE_VERSION)) + " " +
                Narrow(version.getVersionInfoFixedValue(CVersionInfo::eFIXED_PRODUCT_VERSION)),
            ProductOf(version)};
}

/// The system error of a file of this content: 0 if it has a block.
DWORD ErrorOf(const std::string& content)
{
    layer::MemorySource source(std::as_bytes(std::span(content)));
    layer::Extent block;
    return layer::FindVersionBlock(source, block);
}

void ExpectSound(const std::string& file, const std::string& product = "a product")
{
    const Answers answers = Ask(file);
    EXPECT_EQ(answers.Numbers, numbers);
    EXPECT_EQ(answers.Product, product);
}

TEST(VersionFiles, OfEveryKind)
{
    for (const bool wide : {false, true}) {
        for (const std::size_t alignment : {16U, 512U, 4096U, 65536U})
            ExpectSound(PeFile(wide, alignment, {{0x409, PlainBlock()}}));
        ExpectSound(ElfFileWith(wide, PlainBlock()));
        support::ResourceFile resources;
        resources.Add(support::ResourceFile::Number(16), support::ResourceFile::Number(1), 0, PlainBlock());
        ExpectSound(ElfFile(wide, resources.Content, true));
    }
    // Pages of memory start at whole blocks of the file, whatever a section says.
    std::string file = PeFile(true, 4096, {{0x409, PlainBlock()}});
    Put(file, 64 + 24 + 240 + 40 + 20, Word(support::PeHeaders + 100));
    ExpectSound(file);
}

TEST(VersionFiles, InTheLanguageOfThePlatform)
{
    const auto block = [](const char* product) { return PlainBlock(product); };
    ExpectSound(PeFile(true, 4096, {{0x407, block("de")}, {0x409, block("en")}, {0, block("any")}}), "en");
    ExpectSound(PeFile(true, 4096, {{0x407, block("de")}, {0x40C, block("fr")}, {0, block("any")}}), "any");
    ExpectSound(PeFile(false, 4096, {{0x407, block("de")}, {0x40C, block("fr")}}), "de");
}

TEST(VersionFiles, WithoutABlockSayWhy)
{
    const std::string pe = PeFile(true, 4096, {{0x409, PlainBlock()}});
    const auto with = [&pe](std::size_t at, const std::string& part) {
        std::string changed = pe;
        Put(changed, at, part);
        return ErrorOf(changed);
    };
    constexpr std::size_t optional = 64 + 24;
    constexpr std::size_t section = optional + 240 + 40;
    constexpr std::size_t tree = support::PeHeaders;
    EXPECT_EQ(with(0, "ZM"), ERROR_BAD_EXE_FORMAT);
    EXPECT_EQ(with(60, Word(0xFFFFFFFF)), ERROR_BAD_EXE_FORMAT) << "headers beyond the end";
    EXPECT_EQ(with(64, "NE"), ERROR_BAD_EXE_FORMAT);
    EXPECT_EQ(with(optional, Half(0x107)), ERROR_BAD_EXE_FORMAT) << "of a third kind";
    EXPECT_EQ(with(optional + 108, Word(2)), ERROR_RESOURCE_DATA_NOT_FOUND) << "two directories";
    EXPECT_EQ(with(optional + 112 + 16, Word(0)), ERROR_RESOURCE_DATA_NOT_FOUND) << "no resources";
    EXPECT_EQ(with(optional + 112 + 16, Word(0xFFFFFFF0)), ERROR_RESOURCE_DATA_NOT_FOUND) << "resources nowhere";
    EXPECT_EQ(with(section + 20, Word(0xFFFFFE00)), ERROR_RESOURCE_TYPE_NOT_FOUND) << "a section beyond the end";
    EXPECT_EQ(with(tree + 14, Half(0)), ERROR_RESOURCE_TYPE_NOT_FOUND);
    EXPECT_EQ(with(tree + 16, Word(24)), ERROR_RESOURCE_TYPE_NOT_FOUND);
    EXPECT_EQ(with(tree + 20, Word(24)), ERROR_RESOURCE_TYPE_NOT_FOUND) << "data where names belong";
    EXPECT_EQ(with(tree + 24 + 16, Word(2)), ERROR_RESOURCE_NAME_NOT_FOUND);
    EXPECT_EQ(with(tree + 48 + 14, Half(0)), ERROR_RESOURCE_LANG_NOT_FOUND);
    EXPECT_EQ(with(tree + 48 + 20, Word(0x7FFFFFFF)), ERROR_RESOURCE_LANG_NOT_FOUND) << "a record beyond the section";
    EXPECT_EQ(with(tree + 72, Word(0xFFFFFFFF)), ERROR_RESOURCE_DATA_NOT_FOUND) << "data nowhere";
    EXPECT_EQ(with(tree + 76, Word(0)), ERROR_RESOURCE_DATA_NOT_FOUND) << "no bytes of data";
    // Directories that lead to themselves or each other: three steps are all there are.
    EXPECT_EQ(with(tree + 20, Word(0x80000000)), ERROR_RESOURCE_NAME_NOT_FOUND);
    EXPECT_EQ(with(tree + 44, Word(0x80000000)), ERROR_RESOURCE_LANG_NOT_FOUND);
    EXPECT_EQ(with(tree + 48 + 20, Word(0x80000000)), ERROR_RESOURCE_LANG_NOT_FOUND);
    // Counts that promise more than there is.
    EXPECT_EQ(with(tree + 12, Half(0xFFFF)), ERROR_RESOURCE_TYPE_NOT_FOUND) << "named entries come first";
    EXPECT_EQ(with(tree + 14, Half(0xFFFF)), ERROR_SUCCESS);

    EXPECT_EQ(ErrorOf(""), ERROR_BAD_EXE_FORMAT);
    EXPECT_EQ(ErrorOf(ElfFile(true, "")), ERROR_RESOURCE_TYPE_NOT_FOUND);
    EXPECT_EQ(ErrorOf(ElfFile(true, support::ResourceFile().Content)), ERROR_RESOURCE_TYPE_NOT_FOUND);
    std::string elf = ElfFileWith(true, PlainBlock());
    Put(elf, 40, Word(0xFFFFFFFF) + Word(0xFFFFFFFF));
    EXPECT_EQ(ErrorOf(elf), ERROR_RESOURCE_DATA_NOT_FOUND) << "sections nowhere";
}

TEST(VersionFiles, MayEndAnywhere)
{
    for (const std::string& whole : {PeFile(false, 4096, {{0x409, PlainBlock()}}), ElfFileWith(true, PlainBlock())}) {
        for (std::size_t length = 0; length < whole.size(); ++length) {
            // On the heap at its exact size, so that tools see every byte that is read beyond it.
            const std::unique_ptr<std::byte[]> bytes(new std::byte[length]);
            std::memcpy(bytes.get(), whole.data(), length);
            layer::MemorySource source({bytes.get(), length});
            layer::Extent block;
            if (layer::FindVersionBlock(source, block) != ERROR_SUCCESS)
                continue;
            const std::unique_ptr<std::byte[]> copy(new std::byte[static_cast<std::size_t>(block.Size)]);
            const std::size_t copied = source.Copy(block.Start, copy.get(), static_cast<std::size_t>(block.Size));
            void* value = nullptr;
            UINT bytesOfValue = 0;
            if (layer::ClampVersionBlock(copy.get(), copied) &&
                VerQueryValueW(copy.get(), u"\\"_w, &value, &bytesOfValue) &&
                bytesOfValue == sizeof(VS_FIXEDFILEINFO)) {
                EXPECT_EQ(std::memcmp(value, support::FixedNumbers().data(), bytesOfValue), 0) << length;
            }
        }
    }
    // A block without its end keeps its numbers, and the texts in front of the end.
    const std::string elf = ElfFileWith(
        true,
        VersionBlock({SectionNode("040904b0", {TextNode("ProductName", "front"), TextNode("Comments", "behind")})}));
    EXPECT_EQ(ErrorOf(elf.substr(0, 200)), ERROR_RESOURCE_DATA_NOT_FOUND) << "its table of sections stands at the end";
    const std::string pe = PeFile(true, 4096, {{0x409, PlainBlock("front")}});
    const std::size_t product = pe.find(support::Units("front"));
    const Answers answers = Ask(pe.substr(0, product + 12));
    EXPECT_EQ(answers.Numbers, numbers);
    EXPECT_EQ(answers.Product, "front");
}

TEST(VersionBlocks, KeepTheirNumbersWhateverTheTextsAre)
{
    const auto ask = [](const std::string& block) { return Ask(ElfFileWith(true, block)); };
    const std::string name = TextNode("ProductName", "a product");
    const auto product = [&](const std::string& section) {
        const Answers answers = ask(VersionBlock({section}));
        EXPECT_EQ(answers.Numbers, numbers);
        return answers.Product;
    };
    EXPECT_EQ(product(SectionNode("040904b0", {TextNode("Comments", ""), name})), "a product");
    EXPECT_EQ(product(Node("VarFileInfo", "", 0, true) + SectionNode("040904b0", {name})), "a product");
    EXPECT_EQ(product(SectionNode("040904b0", {std::string(8, '\0'), name})), "")
        << "a child of no length ends its row";
    EXPECT_EQ(product(SectionNode("040904b0", {Half(5) + std::string(6, '\0'), name})), "");

    std::string odd = name;
    odd.pop_back();
    Put(odd, 0, Half(odd.size()));
    EXPECT_EQ(product(SectionNode("040904b0", {odd})), "a product") << "half a unit is none";
    const std::string units = support::Units("a product");
    EXPECT_EQ(product(SectionNode("040904b0", {Node("ProductName", units, 9, true)})), "a product") << "no terminator";
    EXPECT_EQ(product(SectionNode("040904b0", {Node("ProductName", units + Half(0), 20, true), name})), "a product")
        << "counted in bytes";
    EXPECT_EQ(product(SectionNode("040904b0", {Node("ProductName", units + Half(0), 0xFFFF, true)})), "a product");
    EXPECT_EQ(product(SectionNode("040904b0", {Node("ProductName", units + Half(0), 10, false)})), "a product");
    EXPECT_EQ(product(SectionNode("040904b0", {Node("ProductName", "", 4, true)})), "") << "no text at all";
    std::string longer = name;
    Put(longer, 0, Half(0xFFFF));
    EXPECT_EQ(product(SectionNode("040904b0", {longer})), "a product") << "longer than what it stands in";
    std::string unended = Half(26) + Half(0) + Half(1) + support::Units("ProductNam");
    EXPECT_EQ(product(SectionNode("040904b0", {unended})), "");

    for (const std::size_t length : {0U, 51U, 53U, 0xFFFFU}) {
        std::string block = VersionBlock({SectionNode("040904b0", {name})});
        Put(block, 2, Half(length));
        const Answers answers = ask(block);
        EXPECT_EQ(answers.Numbers, numbers) << length;
        EXPECT_EQ(answers.Product, "a product") << length;
    }
    // A length beyond the block's end is that of the block; one that ends it early hides what stands behind.
    std::string block = PlainBlock();
    Put(block, 0, Half(0xFFFF));
    EXPECT_EQ(ask(block).Product, "a product");
    Put(block, 0, Half(92));
    EXPECT_EQ(ask(block).Numbers, numbers);
    EXPECT_EQ(ask(block).Product, "");
    Put(block, 0, Half(91));
    EXPECT_EQ(ask(block).Numbers, " ") << "half a record is none";
    EXPECT_EQ(ask(Half(2)).Numbers, " ");
}

TEST(VersionFiles, ThatAreNoFiles)
{
    const support::ScratchFolder folder;
    ASSERT_EQ(mkfifo((folder / "pipe").c_str(), 0600), 0);
    const struct {
        std::string Path;
        DWORD Error;
    } paths[] = {{folder / "pipe", ERROR_GEN_FAILURE},
                 {folder.path().string(), ERROR_ACCESS_DENIED},
                 {folder / "missing", ERROR_FILE_NOT_FOUND},
                 {"/dev/null", ERROR_BAD_EXE_FORMAT},
                 {"", ERROR_PATH_NOT_FOUND}};
    for (const auto& path : paths) {
        EXPECT_EQ(GetFileVersionInfoSizeW(support::Wide(path.Path).c_str(), nullptr), 0U) << path.Path;
        EXPECT_EQ(GetLastError(), path.Error) << path.Path;
    }
    EXPECT_EQ(GetFileVersionInfoSizeW(nullptr, nullptr), 0U);
    EXPECT_FALSE(GetFileVersionInfoW(support::Wide("/bin/sh").c_str(), 0, 0, nullptr));
}

TEST(VersionFiles, WithoutMemoryAnswerNothing)
{
    const support::ScratchFolder folder;
    const utility::wstring path = support::Wide(folder / "module");
    support::WriteFile(folder / "module", ElfFileWith(true, PlainBlock()));
    const int failures = support::FailEachAllocation([&path] {
        try {
            CVersionInfo version;
            version.setModule(path);
            const std::string product = ProductOf(version);
            EXPECT_TRUE(product.empty() || product == "a product") << product;
        } catch (const std::bad_alloc&) {
        }
    });
    EXPECT_GT(failures, 3);
}

TEST(VersionNumber, WithoutMemory)
{
    char narrow[16];
    unsigned short wide[16];
    const auto refused = [](auto fill, auto* buffer) {
        return support::FailEachAllocation([&] {
            try {
                EXPECT_EQ(fill(buffer, 16U), 10);
            } catch (const _com_error& failure) {
                EXPECT_EQ(failure.Error(), E_OUTOFMEMORY);
            }
        });
    };
    EXPECT_GT(refused(GetVersionNumberA, narrow), 0);
    EXPECT_GT(refused(GetVersionNumberW, wide), 0);

    std::string texts;
    texts.reserve(100);
    support::FailEachAllocation([&texts] {
        BSTR version = nullptr;
        const int length = GetVersionNumberBSTR(&version);
        for (int i = 0; i < length; ++i)
            texts += static_cast<char>(version[i]);
        texts += ';';
        SysFreeString(version);
    });
    EXPECT_EQ(texts, "-en;4.09.00en;4.09.00-;4.09.00-en;") << "what could not be had is left out";
}

}  // namespace
