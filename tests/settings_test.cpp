// The settings: each accessor, the protected operations, and texts of the library.
#include "tessmaru/settings.h"
#include "testkit/known_modules.h"
#include "testkit/settings_text.h"
#include "testkit/test_machine.h"
#include "testkit/text.h"

#include <gtest/gtest.h>

#include <functional>

using namespace utility::literals;
using testkit::Narrow;
using testkit::Wide;
using utility::wstring;

namespace {

const std::string& Root = testkit::SuiteKey;

/// Makes the protected operations public, and overrides a virtual one that the base must call.
class OpenSettings : public CSettingsRegistry {
public:
    using CSettingsRegistry::CloseKey;
    using CSettingsRegistry::GetValueDWord;
    using CSettingsRegistry::GetValueString;
    using CSettingsRegistry::OpenKey;
    using CSettingsRegistry::QueryValueDWord;
    using CSettingsRegistry::QueryValueString;

    wstring getDbFileName(wstring first, wstring second) const override
    {
        return Override.empty() ? CSettingsRegistry::getDbFileName(first, second) : Override;
    }
    wstring Override;
};

class Settings : public testing::Test {
protected:
    void Set(const std::string& key, const std::string& values) const
    {
        Machine.Settings.Set(testkit::Section(Root + key, values));
    }

    const testkit::TestMachine Machine;
    const OpenSettings Registry{};
};

TEST_F(Settings, EveryAccessorReadsItsValueAndHasItsDefault)
{
    struct Case {
        const char* Key;
        const char* Value;
        std::function<std::string()> Read;
        const char* Missing;
    };
    const auto number = [this](auto member) { return [=, this] { return std::to_string((Registry.*member)()); }; };
    const auto text = [this](auto member) { return [=, this] { return Narrow((Registry.*member)()); }; };
    using R = CSettingsRegistry;
    const Case cases[] = {
        {"Tag Server", "RequestTimeout", number(&R::getRequestTimeout), "0"},
        {"Tag Server", "ResponseTimeout", number(&R::getResponseTimeout), "0"},
        {"Tag Server", "MaxRequests", number(&R::getMaxRequests), "0"},
        {"Tag Server", "MaxResponses", number(&R::getMaxResponses), "0"},
        {"Protocol", "ElementResponseTimeout", number(&R::getProtocolResponseTimeout), "0"},
        {"UDP", "PortNumber", number(&R::getUDPPortNumber), "0"},
        {"Log\\Application", "FilePath", text(&R::getLogPath), ""},
        {"Log\\Application", "DebugMask", text(&R::getLogDebugMask), ""},
        {"Token Processing", "Disabled", text(&R::getTokenProcessingDisabled), ""},
        {"Tag Server", "MessageResource", text(&R::getMsgResourceName), ""},
        {"Tag Server", "CancelRequestMethod", text(&R::getCancelRequestsMethod), ""},
        {"Tag Server\\Databases", "", [this] { return Narrow(Registry.getDbFileName({}, {})); }, ""},
    };
    for (const Case& setting : cases) {
        EXPECT_EQ(setting.Read(), setting.Missing) << setting.Value;
        const std::string name = *setting.Value == '\0' ? "@" : "\"" + std::string(setting.Value) + "\"";
        const bool isNumber = std::string(setting.Missing) == "0";
        Set(setting.Key, name + (isNumber ? "=dword:ffffffff" : "=\"Some Text\""));
        const bool isSigned =
            std::string(setting.Value) == "RequestTimeout" || std::string(setting.Value) == "ResponseTimeout";
        EXPECT_EQ(setting.Read(), !isNumber ? "Some Text" : isSigned ? "-1" : "4294967295") << setting.Value;
        Machine.Settings.Set("");
    }
    EXPECT_EQ("HKEY_LOCAL_MACHINE\\" + Narrow(Registry.getLogRegKey()), Root + "Log\\Application");
}

TEST_F(Settings, FlagsCompareTheWholeTextWithoutCase)
{
    const struct {
        const char* Text;
        bool ValidationDisabled;
        bool Async;
        bool Sync;
        bool Encrypted;
    } cases[] = {
        {nullptr, false, false, false, true},  {"", false, false, false, true},
        {"y", true, false, false, true},       {"Y", true, false, false, true},
        {"yes", false, false, false, true},    {" Y", false, false, false, true},
        {"1", false, false, false, true},      {"ASYNC", false, true, false, true},
        {"async ", false, false, false, true}, {"Sync", false, false, true, true},
        {"n", false, false, false, false},     {"N", false, false, false, false},
        {"no", false, false, false, true},     {" n", false, false, false, true},
        {"0", false, false, false, true},      {"\xC3\x9D", false, false, false, true},
    };
    for (const auto& flag : cases) {
        const std::string value = flag.Text == nullptr ? "" : "=\"" + std::string(flag.Text) + "\"\r\n";
        if (flag.Text != nullptr)
            Machine.Settings.Set("[" + Root + "Tag Server]\r\n\"ValidationDisabled\"" + value +
                                 "\"CancelRequestMethod\"" + value + "[" + Root + "Protocol]\r\n\"EncryptionEnabled\"" +
                                 value);
        const std::string shown = flag.Text == nullptr ? "missing" : flag.Text;
        EXPECT_EQ(Registry.getValidationDisabled(), flag.ValidationDisabled) << shown;
        EXPECT_EQ(Registry.CancelRequestsIsAsync(), flag.Async) << shown;
        EXPECT_EQ(Registry.CancelRequestsIsSync(), flag.Sync) << shown;
        EXPECT_EQ(Registry.getProtocolEncryptionEnabled(), flag.Encrypted) << shown;
    }
}

TEST_F(Settings, DatabaseNameDependsOnTheArguments)
{
    Set("Tag Server\\Databases", "@=\"Site.mdb\"");
    EXPECT_EQ(Narrow(Registry.getDbFileName(Wide("a"), {})), ".\\TagSpec.mdb");
    EXPECT_EQ(Narrow(Registry.getDbFileName({}, Wide("b"))), ".\\TagSpec.mdb");
    OpenSettings derived;
    std::vector<wstring> names{Wide("first")};
    derived.getDbFileNames(names);
    derived.Override = Wide("overridden");
    derived.getDbFileNames(names);
    EXPECT_EQ(names, (std::vector<wstring>{Wide("first"), Wide("Site.mdb"), Wide("overridden")}));
}

TEST_F(Settings, ValuesOfAnotherTypeAreReadAsBytes)
{
    std::string fits = "hex(1):";
    for (int i = 0; i < 1024; ++i)
        fits += "61,00,";
    std::string tooLong = fits + "61,00";
    fits.pop_back();
    Set("UDP",
        "\"PortNumber\"=\"7\"\r\n\"Text\"=dword:00620061\r\n\"Longer\"=\"78\"\r\n\"Short\"=hex:01,02\r\n\"Odd\"=hex:41,"
        "00,42\r\n\"Fits\"=" +
            fits + "\r\n\"TooLong\"=" + tooLong + "\r\n\"Zero\"=hex(1):41,00,00,00,42,00");
    const wstring key = Wide(Root.substr(19) + "UDP");
    EXPECT_EQ(Registry.getUDPPortNumber(), 0x37U);
    EXPECT_EQ(Narrow(Registry.GetValueString(key, Wide("Text"))), "ab");
    EXPECT_EQ(Registry.GetValueDWord(key, Wide("Longer")), 0U) << "three units do not fit four bytes";
    EXPECT_EQ(Registry.GetValueDWord(key, Wide("Short")), 0x201U);
    EXPECT_EQ(Narrow(Registry.GetValueString(key, Wide("Odd"))), "AB");
    EXPECT_EQ(Registry.GetValueString(key, Wide("Fits")), wstring(1024, u'a'));
    EXPECT_EQ(Registry.GetValueString(key, Wide("TooLong")), wstring());
    EXPECT_EQ(Narrow(Registry.GetValueString(key, Wide("Zero"))), "A");
}

TEST_F(Settings, KeyThatDoesNotOpenLeavesTheEarlierKeyOpen)
{
    Set("UDP", "\"PortNumber\"=dword:00000007");
    EXPECT_EQ(Registry.QueryValueDWord(Wide("PortNumber")), 0U) << "no key is open";
    Registry.OpenKey(Wide(Root.substr(19) + "UDP"));
    Registry.OpenKey(Wide("Missing"));
    EXPECT_EQ(Registry.QueryValueDWord(Wide("PortNumber")), 7U);
    Registry.CloseKey();
    Set("UDP", "\"PortNumber\"=dword:00000008");
    EXPECT_EQ(Registry.getUDPPortNumber(), 8U);
    EXPECT_EQ(Narrow(Registry.QueryValueString(Wide("PortNumber"))), "");
}

TEST(Strings, RowsOfTheLibraryAndOfOthers)
{
    EXPECT_EQ(Narrow(utility::GetVersionString()), "4.09.00-en");
    const HINSTANCE library = testkit::LibraryModule();
    EXPECT_EQ(Narrow(utility::genStringFromResourceModule(library, 256, nullptr)),
              "SOFTWARE\\Orvane Electronics Limited\\Veltrix\\");
    EXPECT_EQ(Narrow(utility::genStringFromResourceModule(library, 260, nullptr)), "Token Processing");
    EXPECT_EQ(Narrow(utility::genStringFromResourceModule(library, 999, nullptr)), "");
    EXPECT_EQ(Narrow(utility::genStringFromResourceModule(testkit::SystemModule(), 260, nullptr)), "");
    const HINSTANCE program = GetModuleHandleW(nullptr);
    EXPECT_EQ(Narrow(utility::genStringFromResourceModule(program, 100, nullptr)), std::string(1022, 'x'));
    EXPECT_EQ(Narrow(utility::genStringFromResourceModule(program, 101, nullptr)), std::string(1022, 'y')) << "cut";
}

}  // namespace
