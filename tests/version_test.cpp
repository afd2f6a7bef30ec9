// Version information of modules, and the exports of the version number.
#include "tessmaru/version.h"

#include "tessmaru/settings.h"
#include "testkit/file_content.h"
#include "testkit/known_modules.h"
#include "testkit/scratch_folder.h"
#include "testkit/settings_text.h"
#include "testkit/test_machine.h"
#include "testkit/text.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <stdexcept>

namespace {

using namespace utility::literals;
using testkit::Narrow;
using testkit::Wide;

/// Makes the reads by any name public.
class Version : public utility::CVersionInfo {
public:
    using CVersionInfo::getVersionInfoFixedValue;
    using CVersionInfo::getVersionInfoLanguageValue;
};

constexpr unsigned short language = 0x1409;
constexpr unsigned short codePage = 0x04B0;

std::string Text(const Version& version, Version::eLANG_VER_INFO value)
{
    return Narrow(version.getVersionInfoLanguageValue(value, language, codePage));
}

void ExpectNothing(const Version& version)
{
    EXPECT_EQ(Narrow(version.getVersionInfoFixedValue(Version::eFIXED_FILE_VERSION)), "");
    EXPECT_EQ(Narrow(version.getVersionInfoFixedValue(Version::eFIXED_PRODUCT_VERSION)), "");
    EXPECT_EQ(Text(version, Version::eLANG_PRODUCT_NAME), "");
}

TEST(VersionInfo, OfTheLibraryItself)
{
    Version version;
    version.setModule(testkit::LibraryModule());
    EXPECT_EQ(Narrow(version.getVersionInfoFixedValue(Version::eFIXED_FILE_VERSION)), "03,10,00,00");
    EXPECT_EQ(Narrow(version.getVersionInfoFixedValue(Version::eFIXED_PRODUCT_VERSION)), "04,09,00,00");
    const struct {
        Version::eLANG_VER_INFO Value;
        const char* Text;
    } texts[] = {{Version::eLANG_COMMENTS, ""},
                 {Version::eLANG_INTERNAL_NAME, "tessmarU"},
                 {Version::eLANG_PRODUCT_NAME, "Veltrix Logging Module"},
                 {Version::eLANG_COMPANY_NAME, ""},
                 {Version::eLANG_LEGAL_COPYRIGHT, ""},
                 {Version::eLANG_PRODUCT_VERSION, "4.09.00"},
                 {Version::eLANG_FILE_DESCRIPTION, "tessmarU"},
                 {Version::eLANG_LEGAL_TRADEMARKS, ""},
                 {Version::eLANG_PRIVATE_BUILD, ""},
                 {Version::eLANG_FILE_VERSION, "3.10.00"},
                 {Version::eLANG_ORIGINAL_FILENAME, "tessmarU.dll"},
                 {Version::eLANG_SPECIAL_BUILD, ""}};
    for (const auto& expected : texts)
        EXPECT_EQ(Text(version, expected.Value), expected.Text) << expected.Value;
    EXPECT_EQ(Narrow(version.getVersionInfoLanguageValue(Version::eLANG_PRODUCT_NAME, 0x0409, codePage)), "");
    EXPECT_EQ(Narrow(version.getVersionInfoLanguageValue(u"productNAME"_w, language, codePage)),
              "Veltrix Logging Module");
    EXPECT_EQ(Narrow(version.getVersionInfoFixedValue(u"fileversion"_w)), "") << "these names are exact";
    EXPECT_EQ(Narrow(version.getVersionInfoLanguageValue(utility::wstring(1000, u'x'), language, codePage)), "");

    // By its path and by its handle the values are the same.
    Version byPath;
    byPath.setModule(version.getModuleFileName());
    EXPECT_EQ(Text(byPath, Version::eLANG_INTERNAL_NAME), "tessmarU");
    byPath.setModule(testkit::LibraryModule());
    EXPECT_EQ(Text(byPath, Version::eLANG_INTERNAL_NAME), "tessmarU");
}

TEST(VersionInfo, OfALoadedModuleByItsName)
{
    Version byHandle;
    byHandle.setModule(testkit::LibraryModule());
    const std::filesystem::path path(Narrow(byHandle.getModuleFileName()));
    const testkit::ScratchFolder folder;
    const std::filesystem::path before = std::filesystem::current_path();
    std::filesystem::current_path(folder.path());
    Version version;
    version.setModule(Wide(path.filename().string()));
    std::filesystem::current_path(before);
    EXPECT_EQ(Narrow(version.getVersionInfoFixedValue(Version::eFIXED_FILE_VERSION)), "03,10,00,00");
    EXPECT_EQ(Narrow(version.getModuleFileName()), path.filename().string());
}

TEST(VersionInfo, ReadsTheSameModuleOnce)
{
    Version version;
    version.setModule(testkit::LibraryModule());
    const testkit::ScratchFolder folder;
    const std::filesystem::path copy = folder / "copy.dll";
    std::filesystem::copy_file(Narrow(version.getModuleFileName()), copy);
    version.setModule(Wide(copy.string()));
    ASSERT_EQ(Text(version, Version::eLANG_INTERNAL_NAME), "tessmarU");
    testkit::WriteFile(copy, "no module");
    version.setModule(Wide(copy.string()));
    EXPECT_EQ(Text(version, Version::eLANG_INTERNAL_NAME), "tessmarU");
    version.setModule(testkit::LibraryModule());
    version.setModule(Wide(copy.string()));
    ExpectNothing(version);
}

TEST(VersionInfo, RefusesMisuseAndKeepsItsModule)
{
    Version version;
    EXPECT_TRUE(version.getModuleFileName().empty());
    ExpectNothing(version);
    EXPECT_THROW(version.setModule(HINSTANCE{nullptr}), std::exception);
    version.setModule(testkit::LibraryModule());
    const utility::wstring path = version.getModuleFileName();
    EXPECT_FALSE(path.empty());
    const auto nowhere = reinterpret_cast<HINSTANCE>(std::uintptr_t{0x10000});
    EXPECT_THROW(version.setModule(HINSTANCE{nullptr}), std::exception);
    EXPECT_THROW(version.setModule(nowhere), std::exception);
    EXPECT_THROW(version.setModule(utility::wstring()), std::exception);
    EXPECT_EQ(version.getModuleFileName(), path);
    EXPECT_EQ(Text(version, Version::eLANG_INTERNAL_NAME), "tessmarU");

    for (const int index : {-1, 2, 1000})
        EXPECT_THROW(version.getVersionInfoFixedValue(static_cast<Version::eFIXED_VER_INFO>(index)), std::out_of_range);
    for (const int index : {-1, 12, 1000}) {
        try {
            Text(version, static_cast<Version::eLANG_VER_INFO>(index));
            ADD_FAILURE() << index;
        } catch (const std::out_of_range& refusal) {
            EXPECT_STREQ(refusal.what(), "invalid vector<T> subscript");
        }
    }
}

TEST(VersionInfo, NeverGivesTheValuesOfAnEarlierModule)
{
    const testkit::ScratchFolder folder;
    testkit::WriteFile(folder / "plain.dll", "no module");
    Version version;
    for (const std::string& path :
         {(folder / "plain.dll").string(), (folder / "missing.dll").string(), std::string(2000, 'x')}) {
        version.setModule(testkit::LibraryModule());
        ASSERT_EQ(Text(version, Version::eLANG_INTERNAL_NAME), "tessmarU");
        version.setModule(Wide(path));
        EXPECT_EQ(Narrow(version.getModuleFileName()), path);
        ExpectNothing(version);
    }
}

TEST(VersionInfo, DefaultModuleIsASetting)
{
    const testkit::TestMachine machine;
    machine.Settings.Set("");
    Version version;
    version.setModule(testkit::LibraryModule());
    EXPECT_TRUE(version.getDefaultModule().empty());
    EXPECT_THROW(version.setModule(version.getDefaultModule()), std::exception);
    machine.Settings.Set(
        testkit::Section(testkit::SuiteKey + "Tag Server", testkit::TextValue("MessageResource", "Messages.dll")));
    EXPECT_EQ(Narrow(version.getDefaultModule()), "Messages.dll");
    EXPECT_EQ(Text(version, Version::eLANG_INTERNAL_NAME), "tessmarU") << "the call selects no module";
}

/// Fills a buffer by one of the exports. @return its content up to the first untouched character.
template <class Character>
std::string Filled(int (*fill)(Character*, unsigned int), unsigned int count, int& result)
{
    Character buffer[16];
    std::fill(std::begin(buffer), std::end(buffer), Character{'#'});
    result = fill(buffer, count);
    std::string text(std::begin(buffer), std::end(buffer));
    return text.substr(0, text.find('#'));
}

TEST(VersionNumber, FillsTheBufferAndIsCutToIt)
{
    const std::string whole("4.09.00-en");
    for (unsigned int count = 0; count <= 16; ++count) {
        const std::string expected = count > whole.size() ? whole + '\0' : whole.substr(0, count);
        int narrow = 0;
        int wide = 0;
        EXPECT_EQ(Filled(GetVersionNumberA, count, narrow), expected) << count;
        EXPECT_EQ(Filled(GetVersionNumberW, count, wide), expected) << count;
        EXPECT_EQ(narrow, wide);
        EXPECT_EQ(narrow < 0 ? -1 : narrow, count < whole.size() ? -1 : 10) << count;
    }
    EXPECT_EQ(Narrow(utility::GetVersionString()), whole);
}

TEST(VersionNumber, AsAnAutomationString)
{
    BSTR version = nullptr;
    EXPECT_EQ(GetVersionNumberBSTR(&version), 10);
    ASSERT_NE(version, nullptr);
    EXPECT_EQ(SysStringLen(version), 10U);
    EXPECT_EQ(std::string(version, version + 11), std::string("4.09.00-en", 11));
    SysFreeString(version);
}

}  // namespace
