// Version blocks on Linux: in files that are built here, also malformed ones, and in files of other kinds.
#include "resources/version_block.h"
#include "resources/version_file.h"
#include "tessmaru/version.h"
#include "testkit/bytes.h"
#include "testkit/exact_copy.h"
#include "testkit/file_content.h"
#include "testkit/linux/failing_allocation.h"
#include "testkit/module_file_builder.h"
#include "testkit/resource_builder.h"
#include "testkit/scratch_folder.h"
#include "testkit/text.h"
#include "testkit/utf16.h"
#include "testkit/version_block_builder.h"

#include <gtest/gtest.h>

#include <cstring>

#include <sys/stat.h>

namespace {

using namespace utility::literals;
using testkit::ElfFile;
using testkit::ElfFileWith;
using testkit::Half;
using testkit::Narrow;
using testkit::Node;
using testkit::PeFile;
using testkit::PlainBlock;
using testkit::Put;
using testkit::SectionNode;
using testkit::TextNode;
using testkit::VersionBlock;
using testkit::Word;
using utility::CVersionInfo;

constexpr char numbers[] = "01,02,03,04 05,06,07,08";

/// The numbers and the product that CVersionInfo reads from a file.
struct Versions {
    std::string Numbers;
    std::string Product;
};

std::string ProductOf(const CVersionInfo& version)
{
    return Narrow(version.getVersionInfoLanguageValue(CVersionInfo::eLANG_PRODUCT_NAME, 0x0409, 0x04B0));
}

Versions Read(const std::string& content)
{
    const testkit::ScratchFolder folder;
    testkit::WriteFile(folder / "module", content);
    CVersionInfo version;
    version.setModule(testkit::Wide((folder / "module").string()));
    return {Narrow(version.getVersionInfoFixedValue(CVersionInfo::eFIXED_FILE_VERSION)) + " " +
                Narrow(version.getVersionInfoFixedValue(CVersionInfo::eFIXED_PRODUCT_VERSION)),
            ProductOf(version)};
}

/// The system error of a file with this content: 0 if it has a block.
DWORD ErrorOf(const std::string& content)
{
    layer::MemorySource source(std::as_bytes(std::span(content)));
    layer::Extent block;
    return layer::FindVersionBlock(source, block);
}

void ExpectReadable(const std::string& file, const std::string& product = "a product")
{
    const Versions read = Read(file);
    EXPECT_EQ(read.Numbers, numbers);
    EXPECT_EQ(read.Product, product);
}

TEST(VersionFiles, OfEveryKind)
{
    for (const bool wide : {false, true}) {
        for (const std::size_t alignment : {16U, 512U, 4096U, 65536U})
            ExpectReadable(PeFile(wide, alignment, {{0x409, PlainBlock()}}));
        ExpectReadable(ElfFileWith(wide, PlainBlock()));
        testkit::ResourceBuilder resources;
        resources.Add(testkit::ResourceBuilder::Number(16), testkit::ResourceBuilder::Number(1), 0, PlainBlock());
        ExpectReadable(ElfFile(wide, resources.Content, true));
    }
    // The data of a section starts at a whole block of the file, even if the section names another place.
    std::string file = PeFile(true, 4096, {{0x409, PlainBlock()}});
    Put(file, 64 + 24 + 240 + 40 + 20, Word(testkit::PeHeaders + 100));
    ExpectReadable(file);
}

TEST(VersionFiles, PartsOfSixteenBits)
{
    std::string block = PlainBlock();
    const std::size_t fixed = block.find(testkit::FixedNumbers());
    Put(block, fixed + 8, Word(0x3039FFFF) + Word(0x00000100) + Word(0xFFFF0063) + Word(0x01008000));
    EXPECT_EQ(Read(ElfFileWith(true, block)).Numbers, "12345,65535,00,256 65535,99,256,32768");
}

/// A file with zeros, or with one record again and again, up to an end that is beyond any disk. Counts the reads.
class EndlessSource final : public layer::ByteSource {
public:
    explicit EndlessSource(std::string start, std::string record = std::string(4, '\0'))
        : Start(std::move(start)), Record(std::move(record))
    {
    }

    layer::Bytes View(std::uint64_t at, std::size_t count) override
    {
        ++Reads;
        if (count > MaxViewBytes || at > std::uint64_t{1} << 60)
            return {};
        for (std::size_t i = 0; i < count; ++i) {
            const std::uint64_t place = at + i;
            Window[i] = place < Start.size() ? Start[static_cast<std::size_t>(place)]
                                             : Record[static_cast<std::size_t>((place - Start.size()) % Record.size())];
        }
        return std::as_bytes(std::span(Window, count));
    }
    std::size_t Copy(std::uint64_t, std::byte*, std::size_t) override { return 0; }

    unsigned Reads = 0;

private:
    const std::string Start;
    const std::string Record;
    char Window[MaxViewBytes];
};

TEST(VersionFiles, LargeFilesWithHolesAreReadInBoundedTime)
{
    const std::string huge = Word(0) + Word(0x1000000);
    std::string manySections = ElfFile(true, "", true);
    const std::size_t sections = manySections.size() - std::size_t{3} * 64;
    Put(manySections, sections + 32, huge);         // the number of sections
    Put(manySections, sections + 64 + 4, Word(8));  // .rsrc is none with content
    std::string manyEntries = ElfFile(true, "", false);
    Put(manyEntries, sections + 64 + 32, huge);  // the size of .rsrc
    Put(manyEntries, sections + 64 + 24, Word(manyEntries.size()));
    const std::string entry = Word(0) + Word(32) + Word(0x0001FFFF) + Word(0x0001FFFF) + std::string(16, '\0');
    std::string pe = PeFile(true, 4096, {{0x409, PlainBlock()}}).substr(0, testkit::PeHeaders);
    Put(pe, 64 + 6, Half(0xFFFF));
    Put(pe, 64 + 24 + 240 + 40 + 12, Word(0));  // the section of the resources is one of the others
    const struct {
        EndlessSource Source;
        DWORD Error;
        unsigned Reads;
    } rows[] = {{EndlessSource(manySections), ERROR_RESOURCE_DATA_NOT_FOUND, 0x10000 + 10},
                {EndlessSource(manyEntries), ERROR_RESOURCE_TYPE_NOT_FOUND, 20},
                {EndlessSource(manyEntries, entry), ERROR_RESOURCE_TYPE_NOT_FOUND, 2 * 0x10000 + 20},
                {EndlessSource(pe), ERROR_RESOURCE_DATA_NOT_FOUND, 0x10000 + 10}};
    for (auto [source, error, reads] : rows) {
        layer::Extent block;
        EXPECT_EQ(layer::FindVersionBlock(source, block), error);
        EXPECT_LE(source.Reads, reads) << error;
    }
}

TEST(VersionFiles, InTheLanguageOfThePlatform)
{
    const auto block = [](const char* product) { return PlainBlock(product); };
    ExpectReadable(PeFile(true, 4096, {{0x407, block("de")}, {0x409, block("en")}, {0, block("any")}}), "en");
    ExpectReadable(PeFile(true, 4096, {{0x407, block("de")}, {0x40C, block("fr")}, {0, block("any")}}), "any");
    ExpectReadable(PeFile(false, 4096, {{0x407, block("de")}, {0x40C, block("fr")}}), "de");
}

TEST(VersionFiles, WithoutABlockReportWhy)
{
    const std::string pe = PeFile(true, 4096, {{0x409, PlainBlock()}});
    const auto with = [&pe](std::size_t at, const std::string& part) {
        std::string changed = pe;
        Put(changed, at, part);
        return ErrorOf(changed);
    };
    constexpr std::size_t optional = 64 + 24;
    constexpr std::size_t section = optional + 240 + 40;
    constexpr std::size_t tree = testkit::PeHeaders;
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
    // Directories that refer to themselves or to each other. The search has three steps.
    EXPECT_EQ(with(tree + 20, Word(0x80000000)), ERROR_RESOURCE_NAME_NOT_FOUND);
    EXPECT_EQ(with(tree + 44, Word(0x80000000)), ERROR_RESOURCE_LANG_NOT_FOUND);
    EXPECT_EQ(with(tree + 48 + 20, Word(0x80000000)), ERROR_RESOURCE_LANG_NOT_FOUND);
    // Counts that are too large.
    EXPECT_EQ(with(tree + 12, Half(0xFFFF)), ERROR_RESOURCE_TYPE_NOT_FOUND) << "named entries come first";
    EXPECT_EQ(with(tree + 14, Half(0xFFFF)), ERROR_SUCCESS);

    EXPECT_EQ(ErrorOf(""), ERROR_BAD_EXE_FORMAT);
    EXPECT_EQ(ErrorOf(ElfFile(true, "")), ERROR_RESOURCE_TYPE_NOT_FOUND);
    EXPECT_EQ(ErrorOf(ElfFile(true, testkit::ResourceBuilder().Content)), ERROR_RESOURCE_TYPE_NOT_FOUND);
    std::string elf = ElfFileWith(true, PlainBlock());
    Put(elf, 40, Word(0xFFFFFFFF) + Word(0xFFFFFFFF));
    EXPECT_EQ(ErrorOf(elf), ERROR_RESOURCE_DATA_NOT_FOUND) << "sections nowhere";
}

TEST(VersionFiles, CutAnywhere)
{
    for (const std::string& whole : {PeFile(false, 4096, {{0x409, PlainBlock()}}), ElfFileWith(true, PlainBlock())}) {
        for (std::size_t length = 0; length < whole.size(); ++length) {
            const testkit::ExactCopy<std::byte> bytes(whole.data(), length);
            layer::MemorySource source(bytes.view());
            layer::Extent block;
            if (layer::FindVersionBlock(source, block) != ERROR_SUCCESS)
                continue;
            const testkit::ExactCopy<std::byte> copy(static_cast<std::size_t>(block.Size));
            const std::size_t copied = source.Copy(block.Start, copy.data(), copy.size());
            void* value = nullptr;
            UINT bytesOfValue = 0;
            if (layer::ClampVersionBlock(copy.data(), copied) &&
                VerQueryValueW(copy.data(), u"\\"_w, &value, &bytesOfValue) &&
                bytesOfValue == sizeof(VS_FIXEDFILEINFO)) {
                EXPECT_EQ(std::memcmp(value, testkit::FixedNumbers().data(), bytesOfValue), 0) << length;
            }
        }
    }
    // A block that is cut keeps its numbers, and the texts before the cut.
    const std::string elf = ElfFileWith(
        true,
        VersionBlock({SectionNode("040904b0", {TextNode("ProductName", "front"), TextNode("Comments", "back")})}));
    EXPECT_EQ(ErrorOf(elf.substr(0, 200)), ERROR_RESOURCE_DATA_NOT_FOUND) << "its table of sections is at the end";
    const std::string pe = PeFile(true, 4096, {{0x409, PlainBlock("front")}});
    const std::size_t product = pe.find(testkit::EncodeUtf16("front"));
    const Versions read = Read(pe.substr(0, product + 12));
    EXPECT_EQ(read.Numbers, numbers);
    EXPECT_EQ(read.Product, "front");
}

TEST(VersionBlocks, MalformedTextsLeaveTheNumbers)
{
    const auto readBlock = [](const std::string& block) { return Read(ElfFileWith(true, block)); };
    const std::string name = TextNode("ProductName", "a product");
    const auto product = [&](const std::vector<std::string>& texts) {
        const Versions read = readBlock(VersionBlock({SectionNode("040904b0", texts)}));
        EXPECT_EQ(read.Numbers, numbers);
        return read.Product;
    };
    const std::string units = testkit::EncodeUtf16("a product");
    const std::string ended = units + Half(0);
    std::string odd = name;
    odd.pop_back();
    Put(odd, 0, Half(odd.size()));
    std::string longer = name;
    Put(longer, 0, Half(0xFFFF));
    const std::string unterminated = Half(26) + Half(0) + Half(1) + testkit::EncodeUtf16("ProductNam");
    EXPECT_EQ(product({TextNode("Comments", ""), name}), "a product");
    EXPECT_EQ(product({std::string(8, '\0'), name}), "") << "a child of length 0 ends the list";
    EXPECT_EQ(product({Half(5) + std::string(6, '\0'), name}), "");
    EXPECT_EQ(product({odd}), "a product") << "half a unit is dropped";
    EXPECT_EQ(product({Node("ProductName", units, 9, true)}), "a product") << "no terminator";
    EXPECT_EQ(product({Node("ProductName", ended, 20, true), name}), "a product") << "counted in bytes";
    EXPECT_EQ(product({Node("ProductName", ended, 0xFFFF, true)}), "a product");
    EXPECT_EQ(product({Node("ProductName", ended, 10, false)}), "a product");
    EXPECT_EQ(product({Node("ProductName", "", 4, true)}), "") << "no text at all";
    EXPECT_EQ(product({longer}), "a product") << "longer than its parent";
    EXPECT_EQ(product({unterminated}), "");

    const std::string other = Node("VarFileInfo", "", 0, true);
    EXPECT_EQ(readBlock(VersionBlock({other + SectionNode("040904b0", {name})})).Product, "a product");
    for (const std::size_t length : {0U, 51U, 53U, 0xFFFFU}) {
        std::string block = VersionBlock({SectionNode("040904b0", {name})});
        Put(block, 2, Half(length));
        const Versions read = readBlock(block);
        EXPECT_EQ(read.Numbers, numbers) << length;
        EXPECT_EQ(read.Product, "a product") << length;
    }
    // A length beyond the end of the block counts as the block's. A shorter length hides the rest.
    std::string block = PlainBlock();
    Put(block, 0, Half(0xFFFF));
    EXPECT_EQ(readBlock(block).Product, "a product");
    Put(block, 0, Half(92));
    EXPECT_EQ(readBlock(block).Numbers, numbers);
    EXPECT_EQ(readBlock(block).Product, "");
    Put(block, 0, Half(91));
    EXPECT_EQ(readBlock(block).Numbers, " ") << "half a record is dropped";
    EXPECT_EQ(readBlock(Half(2)).Numbers, " ");
}

TEST(VersionFiles, OfOtherKindsAreRefused)
{
    const testkit::ScratchFolder folder;
    ASSERT_EQ(mkfifo((folder / "pipe").c_str(), 0600), 0);
    const struct {
        std::string Path;
        DWORD Error;
    } paths[] = {{folder / "pipe", ERROR_GEN_FAILURE},
                 {folder.path().string(), ERROR_ACCESS_DENIED},
                 {folder / "missing", ERROR_FILE_NOT_FOUND},
                 {"/dev/null", ERROR_RESOURCE_DATA_NOT_FOUND},
                 {"", ERROR_PATH_NOT_FOUND}};
    for (const auto& path : paths) {
        EXPECT_EQ(GetFileVersionInfoSizeW(testkit::Wide(path.Path).c_str(), nullptr), 0U) << path.Path;
        EXPECT_EQ(GetLastError(), path.Error) << path.Path;
    }
    EXPECT_EQ(GetFileVersionInfoSizeW(nullptr, nullptr), 0U);
    EXPECT_FALSE(GetFileVersionInfoW(testkit::Wide("/bin/sh").c_str(), 0, 0, nullptr));
}

TEST(VersionFiles, OutOfMemory)
{
    const testkit::ScratchFolder folder;
    const utility::wstring path = testkit::Wide((folder / "module").string());
    testkit::WriteFile(folder / "module", ElfFileWith(true, PlainBlock()));
    const int failures = testkit::FailEachAllocation([&path] {
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

TEST(VersionNumber, OutOfMemory)
{
    char narrow[16];
    unsigned short wide[16];
    const auto refused = [](auto fill, auto* buffer) {
        return testkit::FailEachAllocation([&] {
            try {
                EXPECT_EQ(fill(buffer, 16U), 10);
            } catch (const _com_error& failure) {
                EXPECT_EQ(failure.Error(), E_OUTOFMEMORY);
            }
        });
    };
    EXPECT_GT(refused(GetVersionNumberA, narrow), 0);
    EXPECT_GT(refused(GetVersionNumberW, wide), 0);

    int lengths = 0;
    testkit::FailEachAllocation([&lengths] {
        BSTR version = nullptr;
        lengths += GetVersionNumberBSTR(&version);
        SysFreeString(version);
    });
    EXPECT_EQ(lengths, 3 + 9 + 8 + 10) << "a part without memory is left out";
}

}  // namespace
