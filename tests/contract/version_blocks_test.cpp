// Contract of version blocks of files, and of the files of modules.
#include "system.h"
#include "testkit/file_content.h"
#include "testkit/known_modules.h"
#include "testkit/scratch_folder.h"
#include "testkit/text.h"

#include <gtest/gtest.h>

#include <cstring>
#include <vector>

namespace {

using namespace utility::literals;

utility::wstring FileOf(HMODULE module)
{
    unsigned short path[1024];
    const DWORD units = GetModuleFileNameW(module, platform::Wide(path), static_cast<DWORD>(std::size(path)));
    EXPECT_GT(units, 0U);
    EXPECT_LT(units, std::size(path));
    return {path, units};
}

std::vector<char> BlockOf(const utility::wstring& path)
{
    DWORD handle = 7;
    std::vector<char> block(GetFileVersionInfoSizeW(platform::Wide(path.c_str()), &handle));
    EXPECT_EQ(handle, 0U);
    EXPECT_TRUE(
        GetFileVersionInfoW(platform::Wide(path.c_str()), handle, static_cast<DWORD>(block.size()), block.data()));
    return block;
}

/// The block of this program.
class VersionBlock : public testing::Test {
protected:
    template <class Value>
    const Value* Find(const unsigned short* query)
    {
        void* found = nullptr;
        Length = 4711;
        if (!VerQueryValueW(Block.data(), platform::Wide(query), &found, &Length)) {
            EXPECT_EQ(Length, 0U);
            return nullptr;
        }
        EXPECT_GE(static_cast<char*>(found), Block.data());
        EXPECT_LE(static_cast<char*>(found) + Length, Block.data() + Block.size());
        return static_cast<const Value*>(found);
    }

    std::vector<char> Block = BlockOf(FileOf(nullptr));
    UINT Length = 0;
};

TEST_F(VersionBlock, HasTheNumbersOfThePreferredLanguage)
{
    const auto* const fixed = Find<VS_FIXEDFILEINFO>(u"\\"_w);
    ASSERT_NE(fixed, nullptr);
    EXPECT_EQ(Length, sizeof(VS_FIXEDFILEINFO));
    EXPECT_EQ(fixed->dwSignature, 0xFEEF04BD);
    EXPECT_EQ(fixed->dwFileVersionMS, 0x00010002U);
    EXPECT_EQ(fixed->dwFileVersionLS, 0x00030004U);
    EXPECT_EQ(fixed->dwProductVersionMS, 0x3039FFFFU);
    EXPECT_EQ(fixed->dwProductVersionLS, 100U);
    EXPECT_EQ(fixed->dwFileFlags, 2U);
    EXPECT_EQ(fixed->dwFileType, 1U);
}

TEST_F(VersionBlock, HasTextsByPath)
{
    const struct {
        const unsigned short* Query;
        utility::wstring Text;
    } texts[] = {
        {u"\\StringFileInfo\\040904b0\\ProductName"_w, testkit::Wide("English ") + utility::wstring{0xE4, 0x4E2D}},
        {u"\\STRINGFILEINFO\\040904B0\\productname"_w, testkit::Wide("English ") + utility::wstring{0xE4, 0x4E2D}},
        {u"\\StringFileInfo\\040904b0\\FileVersion"_w, testkit::Wide("1.2.3")},
        {u"\\StringFileInfo\\040704e4\\ProductName"_w, testkit::Wide("other section")}};
    for (const auto& expected : texts) {
        const auto* const text = Find<unsigned short>(expected.Query);
        ASSERT_NE(text, nullptr);
        EXPECT_EQ(utility::wstring(text), expected.Text);
        EXPECT_EQ(Length, expected.Text.size() + 1) << "with the terminator";
    }
    const auto* const old = Find<unsigned short>(u"\\StringFileInfo\\040904b0\\Old"_w);
    ASSERT_NE(old, nullptr);
    EXPECT_EQ(testkit::Narrow(old), "with its terminator");
    for (const unsigned short* missing :
         {u"\\StringFileInfo\\040904b0\\SpecialBuild"_w, u"\\StringFileInfo\\140904b0\\ProductName"_w,
          u"\\StringFileInfo\\040904b0\\ProductName\\more"_w, u"\\Nothing"_w})
        EXPECT_EQ(Find<char>(missing), nullptr);
}

TEST_F(VersionBlock, HasAListOfTranslations)
{
    const auto* const words = Find<unsigned short>(u"\\VarFileInfo\\Translation"_w);
    ASSERT_NE(words, nullptr);
    ASSERT_EQ(Length, 8U) << "bytes";
    const unsigned short expected[] = {0x0409, 0x04B0, 0x0407, 0x04E4};
    EXPECT_EQ(std::memcmp(words, expected, sizeof expected), 0);
}

TEST(VersionBlocks, AreMissingInOtherFiles)
{
    const testkit::ScratchFolder folder;
    testkit::WriteFile(folder / "text.dll", "no module at all");
    testkit::WriteFile(folder / "empty.dll", "");
    char block[64];
    const struct {
        std::string Path;
        DWORD Error;
    } files[] = {{(folder / "text.dll").string(), ERROR_RESOURCE_DATA_NOT_FOUND},
                 {(folder / "empty.dll").string(), ERROR_RESOURCE_DATA_NOT_FOUND},
                 {(folder / "missing.dll").string(), ERROR_FILE_NOT_FOUND},
                 {folder.path().string(), ERROR_ACCESS_DENIED}};
    for (const auto& file : files) {
        const utility::wstring wide = testkit::Wide(file.Path);
        SetLastError(0);
        EXPECT_EQ(GetFileVersionInfoSizeW(platform::Wide(wide.c_str()), nullptr), 0U) << file.Path;
        EXPECT_EQ(GetLastError(), file.Error) << file.Path;
        EXPECT_FALSE(GetFileVersionInfoW(platform::Wide(wide.c_str()), 0, sizeof block, block)) << file.Path;
        EXPECT_EQ(GetLastError(), file.Error) << file.Path;
    }
}

TEST(ModuleFiles, HaveTheNamesOfTheirModules)
{
    const utility::wstring program = FileOf(nullptr);
    EXPECT_EQ(FileOf(GetModuleHandleW(nullptr)), program);
    EXPECT_NE(testkit::Narrow(program).find("version_blocks_test"), std::string::npos);
    const utility::wstring library = FileOf(testkit::SystemModule());
    EXPECT_NE(library, program);
    EXPECT_EQ(GetModuleHandleW(platform::Wide(library.c_str())), testkit::SystemModule());
}

TEST(ModuleFiles, NamesAreCutToTheBuffer)
{
    const utility::wstring whole = FileOf(nullptr);
    const auto length = static_cast<DWORD>(whole.size());
    std::vector<unsigned short> buffer(whole.size() + 2, 0xBEEF);
    EXPECT_EQ(GetModuleFileNameW(nullptr, platform::Wide(buffer.data()), length), length);
    EXPECT_EQ(GetLastError(), ERROR_INSUFFICIENT_BUFFER);
    EXPECT_EQ(utility::wstring(buffer.data(), length - 1), whole.substr(0, length - 1));
    EXPECT_EQ(buffer[length], 0xBEEF);
    EXPECT_EQ(GetModuleFileNameW(nullptr, platform::Wide(buffer.data()), length + 1), length);
    EXPECT_EQ(buffer.data(), whole);

    unsigned short kept = 0xBEEF;
    const auto nowhere = reinterpret_cast<HMODULE>(std::uintptr_t{0x10000});
    EXPECT_EQ(GetModuleFileNameW(nowhere, platform::Wide(&kept), 1), 0U);
    EXPECT_EQ(GetLastError(), ERROR_MOD_NOT_FOUND);
}

}  // namespace
