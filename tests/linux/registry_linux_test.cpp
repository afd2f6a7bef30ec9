// The settings store on Linux: the content of its file, and the time of its reads.
#include "store/export_file.h"
#include "store/registry.h"
#include "testkit/environment_variable.h"
#include "testkit/file_content.h"
#include "testkit/linux/failing_allocation.h"
#include "testkit/linux/without_descriptors.h"
#include "testkit/settings_text.h"
#include "testkit/test_machine.h"
#include "testkit/text.h"
#include "testkit/utf16.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cstring>
#include <fcntl.h>
#include <optional>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>
#include <vector>

using namespace utility::literals;
using layer::RegistrySnapshot;
using layer::TextView;
using testkit::Wide;

namespace {

const std::string Header(testkit::ExportHeading);
const std::string Key = "[HKEY_LOCAL_MACHINE\\Suite\\Log]\r\n";

/// A file in UTF-16 with a byte-order mark.
std::string Utf16(std::string_view text)
{
    return "\xFF\xFE" + testkit::EncodeUtf16(text);
}

struct Parsed {
    explicit Parsed(std::string_view file) : Store(layer::ReadRegistryFile(file, Report)) {}

    std::optional<RegistrySnapshot::Key> Find(TextView path, HKEY hive = HKEY_LOCAL_MACHINE) const
    {
        return Store.FindKey(Store.PathOf(*RegistrySnapshot::FindHive(hive)), path);
    }

    /// A value as "type:text" or "type: bytes"; otherwise "none" or "no key".
    std::string Show(std::string_view path, std::string_view name) const
    {
        const auto key = Find(Wide(path));
        if (!key)
            return "no key";
        const auto value = Store.FindValue(*key, Wide(name));
        if (!value)
            return "none";
        std::string shown = std::to_string(value->Type) + ":";
        if (value->Type == REG_SZ) {
            utility::wstring text(value->Data.size() / sizeof(WCHAR), 0);
            std::memcpy(text.data(), value->Data.data(), value->Data.size());
            EXPECT_EQ(text.back(), 0);
            return shown + testkit::Narrow(TextView(text).substr(0, text.size() - 1));
        }
        for (const BYTE byte : value->Data)
            shown += " " + std::to_string(byte);
        return shown;
    }

    std::string DroppedNumbers() const
    {
        std::string numbers;
        for (const auto& line : Report.Dropped)
            numbers += (numbers.empty() ? "" : " ") + std::to_string(line.Number);
        return numbers;
    }

    layer::FileReport Report;
    RegistrySnapshot Store;
};

struct Line {
    std::string Body;     // after the line of the key, which is the third
    std::string Value;    // of "v"
    std::string Dropped;  // numbers of the dropped lines
};

void CheckInEveryForm(const Line& line, std::string_view path = "Suite\\Log")
{
    const std::string file = Header + Key + line.Body + "\r\n";
    const bool ascii = std::ranges::all_of(file, [](char letter) { return static_cast<unsigned char>(letter) < 0x80; });
    for (const std::string& form : {file, "\xEF\xBB\xBF" + file, ascii ? Utf16(file) : file}) {
        const Parsed parsed(form);
        EXPECT_EQ(parsed.Show(path, "v"), line.Value) << line.Body;
        EXPECT_EQ(parsed.DroppedNumbers(), line.Dropped) << line.Body;
    }
    std::string lineFeeds = file;
    std::erase(lineFeeds, '\r');
    std::string value = line.Value;
    std::erase(value, '\r');
    EXPECT_EQ(Parsed(lineFeeds).Show(path, "v"), value) << line.Body;
}

TEST(RegistryFile, ValidLines)
{
    const Line lines[] = {
        {"\"v\"=\"text\"", "1:text", ""},
        {"\"V\"=\"a\\\\b\\\"c\"", "1:a\\b\"c", ""},
        {"\"v\"=\"C:\\temp\"", "1:C:\\temp", ""},
        {"\"v\"=\"two\r\nlines\"", "1:two\r\nlines", ""},
        {"\"v\"=\"[HKEY] and\r\n [HKEY_USERS]\"", "1:[HKEY] and\r\n [HKEY_USERS]", ""},
        {"\"v\"=\"\"", "1:", ""},
        {" \t\"v\" = \"blanks\"  ; said", "1:blanks", ""},
        {"\"v\"=DWord:0000a0Ff", "4: 255 160 0 0", ""},
        {"\"v\"=dword:7 ; seven", "4: 7 0 0 0", ""},
        {"\"v\"=hex:01, 02,fF", "3: 1 2 255", ""},
        {"\"v\"=hex:", "3:", ""},
        {"\"v\"=hex:\\\r\n  01,02", "3: 1 2", ""},
        {"\"v\"=hex(7):61,00,\\ \r\n  62,00,\\\r\n\\\r\n  00,00", "7: 97 0 98 0 0 0", ""},
        {"\"v\"=hex(1a):1", "26: 1", ""},
        {"\"v\"=\"old\"\r\n\"V\"=\"new\"", "1:new", ""},
        {"\"v\"=\"old\"\r\n\"v\"=-", "none", ""},
        {"\"v\"=-\r\n\"v\"=\"new\"", "1:new", ""},
        {"; \"v\"=\"comment\"\r\n\r\n  ; more", "none", ""},
        {"[HKEY_LOCAL_MACHINE\\Suite] ; [other]\r\n[hkey_local_machine\\SUITE\\log\\]\r\n\"v\"=\"x\"", "1:x", ""},
        {"\"v\"=\"old\"\r\n[-HKEY_LOCAL_MACHINE\\suite]", "no key", ""},
        {"\"v\"=\"old\"\r\n[-HKEY_LOCAL_MACHINE\\Sui]", "1:old", ""},
        {"\"v\"=\"old\"\r\n[-HKEY_LOCAL_MACHINE\\Suite]\r\n[HKEY_LOCAL_MACHINE\\Suite]", "no key", ""},
        {"\"v\"=\"old\"\r\n[-HKEY_LOCAL_MACHINE\\Suite]\r\n" + Key, "none", ""},
        {"\"v\"=\"old\"\r\n[-HKEY_LOCAL_MACHINE\\Suite]\r\n" + Key + "\"v\"=\"new\"", "1:new", ""},
    };
    for (const Line& line : lines)
        CheckInEveryForm(line);
    CheckInEveryForm({"[HKEY_LOCAL_MACHINE\\a]b] ]\r\n\"v\"=\"brackets\"", "1:brackets", ""}, "a]b] ");
}

TEST(RegistryFile, MalformedLinesAreDropped)
{
    const std::string valid = "\"v\"=\"valid\"\r\n";
    const Line lines[] = {
        {valid + "\"v\"=\"text\" x", "1:valid", "5"},
        {valid + "\"v\"", "1:valid", "5"},
        {valid + "\"v\"=", "1:valid", "5"},
        {valid + "\"v\"=-x", "1:valid", "5"},
        {valid + "\"v=\"broken\"", "1:valid", "5"},
        {valid + "\"v\"=dword:", "1:valid", "5"},
        {valid + "\"v\"=dword:123456789", "1:valid", "5"},
        {valid + "\"v\"=dword:12g4", "1:valid", "5"},
        {valid + "\"v\"=hex:01,,02", "1:valid", "5"},
        {valid + "\"v\"=hex:01\\\r\n,02", "1:valid", "5 6"},
        {valid + "\"v\"=hex:123", "1:valid", "5"},
        {valid + "\"v\"=hex(:01", "1:valid", "5"},
        {valid + "\"v\"=hex(123456789):01", "1:valid", "5"},
        {valid + "\"v\"=octal:01", "1:valid", "5"},
        {valid + "[-HKEY_LOCAL_MACHINE]\r\n[-HKEY_LOCAL_MACHINE\\]", "1:valid", "5 6"},
        {valid + "nonsense\r\n=\r\n]", "1:valid", "5 6 7"},
        // The list ends early. The line that should continue it counts as a separate line.
        {"\"u\"=hex:01,\\\r\n\"v\"=\"next\"", "1:next", "4"},
        {"\"u\"=hex:01,\\\r\n" + Key + "\"v\"=\"next\"", "1:next", "4"},
        {"\"u\"=\"no end\r\n\"v\"=\"next\"", "1:next", "4"},
        // Values after a malformed key belong to no known key.
        {"[HKEY_LOCAL_MACHINE\\Other\r\n\"v\"=\"whose?\"", "none", "4 5"},
        {"[HKEY_NOWHERE\\Other]\r\n\"v\"=\"whose?\"", "none", "4 5"},
        {"[]\r\n[-HKEY_LOCAL_MACHINE\\Other]\r\n\"v\"=\"whose?\"", "none", "4 6"},
        {valid + "\"v\"=\"\xFF\"\r\n\"u\"=\"\xED\xA0\x80\"\r\n\"u\"=\"\xF0\x90\x80\xFF\r\n\"", "1:valid", "5 6 7"},
        {"[HKEY_LOCAL_MACHINE\\\xC3]\r\n\"v\"=\"whose?\"", "none", "4 5"},
        {valid + "\"u\"=\"unclosed\r\n@=-\r\n" + Key + "\"w\"=\"after\"", "1:valid", "5"},
        {valid + "\"u\"=\"unclosed\r\n[-hkey_Local_machine\\Suite\\Log]\r\n" + Key + "\"v\"=\"new\"", "1:new", "5"},
        {valid + "\"v\"=\"never closed\r\n", "1:valid", "5"},
    };
    for (const Line& line : lines)
        CheckInEveryForm(line);
    EXPECT_EQ(Parsed("[HKEY_LOCAL_MACHINE\\a]\n\"v\"=\"no heading\"").Show("a", "v"), "1:no heading");
}

TEST(RegistryFile, NamesCompareWithoutCase)
{
    const Parsed parsed(
        "[HKEY_LOCAL_MACHINE\\Suite\\\xC3\xA4\xC3\x96\xD0\xB6\xE4\xB8\xAD]\n@=\"unnamed\"\n"
        "\"\xC3\xBF\"=\"umlaut\"\n\"\xF0\x9D\x84\x9E\"=\"clef\"\n");
    for (const unsigned short* const path :
         {u"suite\\\u00c4\u00f6\u0416\u4e2d"_w, u"SUITE\\\u00e4\u00d6\u0436\u4e2d"_w}) {
        const auto key = parsed.Find(path);
        ASSERT_TRUE(key);
        EXPECT_TRUE(parsed.Store.FindValue(*key, u"\u0178"_w));
        EXPECT_TRUE(parsed.Store.FindValue(*key, {}));
        EXPECT_TRUE(parsed.Store.FindValue(*key, u"\U0001D11E"_w));
        EXPECT_FALSE(parsed.Store.FindValue(*key, u"\u00c4"_w));
    }
    EXPECT_TRUE(parsed.Find(u"Suite"_w)) << "the key above a key exists too";
    EXPECT_FALSE(parsed.Find(u"Suite\\"_w));
    EXPECT_FALSE(parsed.Find(u"Suite"_w, HKEY_USERS));
    EXPECT_TRUE(parsed.Find({}, HKEY_USERS));
}

TEST(RegistryFile, CutAnywhereGivesWholeValuesOnly)
{
    struct Part {
        const char* Name;
        std::string Line;
        std::string Whole;
        bool MayLoseBytes;  // a list that is cut off between two bytes looks like a shorter one
    };
    const Part parts[] = {
        {"path", "\"path\"=\"\\\\var\\\\log\\\\\\\"a\\\".log\"\r\n", "1:\\var\\log\\\"a\".log", false},
        {"lines", "\"lines\"=\"one\r\ntwo\"\r\n", "1:one\r\ntwo", false},
        {"typed", "\"typed\"=hex(2):61,00,\\\r\n  62,00,00,00\r\n", "2: 97 0 98 0 0 0", false},
        {"number", "\"number\"=dword:00002710\r\n", "4: 16 39 0 0", false},
        {"bytes", "\"bytes\"=hex:01,02,\\\r\n  03\r\n", "3: 1 2 3", true},
        {"", "@=\"last\"\r\n", "1:last", false},
    };
    std::string file = Header + Key;
    for (const Part& part : parts)
        file += part.Line;
    for (const std::string& whole : {file, Utf16(file)}) {
        for (std::size_t length = 0; length <= whole.size(); ++length) {
            const Parsed cut(std::string_view(whole).substr(0, length));
            for (const Part& part : parts) {
                const std::string shown = cut.Show("Suite\\Log", part.Name);
                const bool atEnd = part.MayLoseBytes && whole.substr(length, 2).find('\n') == std::string::npos &&
                                   cut.Show("Suite\\Log", (&part)[1].Name) == "none";
                EXPECT_TRUE(shown == part.Whole || shown == "none" || shown == "no key" || atEnd)
                    << length << ' ' << part.Name << ' ' << shown;
            }
        }
        EXPECT_EQ(Parsed(whole).Report.DroppedCount, 0U);
    }
}

class RegistryStore : public testing::Test {
protected:
    void SetText(const std::string& text) const { Machine.Settings.Set(Key + "\"v\"=\"" + text + "\"\r\n"); }

    static HKEY Open(const unsigned short* path = u"Suite\\Log"_w, HKEY parent = HKEY_LOCAL_MACHINE)
    {
        HKEY key = nullptr;
        Result = RegOpenKeyExW(parent, path, 0, KEY_QUERY_VALUE, &key);
        EXPECT_EQ(key == nullptr, Result != 0);
        return key;
    }

    /// The text of "v", or nothing with the reason in Result.
    static std::optional<std::string> Read(HKEY key)
    {
        WCHAR text[64]{};
        DWORD bytes = sizeof text;
        Result = RegQueryValueExW(key, u"v"_w, nullptr, nullptr, reinterpret_cast<BYTE*>(text), &bytes);
        return Result == 0 ? std::optional(testkit::Narrow(text)) : std::nullopt;
    }
    static std::optional<std::string> ReadAgain()
    {
        const HKEY key = Open();
        if (key == nullptr)
            return std::nullopt;
        const auto text = Read(key);
        RegCloseKey(key);
        return text;
    }

    const testkit::TestMachine Machine;
    static thread_local LSTATUS Result;
};

thread_local LSTATUS RegistryStore::Result = 0;

TEST_F(RegistryStore, OpenKeyShowsAChangeAtItsNextRead)
{
    SetText("abc");
    const HKEY above = Open(u"Suite"_w);
    const HKEY below = Open(u"Log"_w, above);
    EXPECT_EQ(Read(below), "abc");
    SetText("changed");
    EXPECT_EQ(Read(below), "changed");
    const HKEY unread = Open(u"LOG"_w, above);
    usleep(20'000);  // the check of the opening counts for the first read within the same tick only
    SetText("again");
    EXPECT_EQ(Read(unread), "again");
    WCHAR kept[4] = {'?'};
    DWORD bytes = sizeof(WCHAR);
    EXPECT_EQ(RegQueryValueExW(below, u"v"_w, nullptr, nullptr, reinterpret_cast<BYTE*>(kept), &bytes),
              LSTATUS{ERROR_MORE_DATA});
    EXPECT_EQ(kept[0], '?') << "a buffer that is too small is left alone";

    Machine.Settings.Set("[HKEY_LOCAL_MACHINE\\Suite\\Other]\r\n[HKEY_USERS]\r\n\"v\"=\"of a hive\"\r\n");
    EXPECT_EQ(Read(below), std::nullopt);
    EXPECT_EQ(Result, LSTATUS{ERROR_KEY_DELETED});
    EXPECT_EQ(Open(u""_w, below), nullptr);
    EXPECT_EQ(Result, LSTATUS{ERROR_KEY_DELETED});
    EXPECT_EQ(Open(u"Log"_w, above), nullptr);
    EXPECT_EQ(Result, LSTATUS{ERROR_FILE_NOT_FOUND});
    EXPECT_EQ(Read(HKEY_USERS), "of a hive");
    std::filesystem::remove(Machine.Settings.location());
    EXPECT_EQ(Read(below), std::nullopt);
    EXPECT_EQ(Result, LSTATUS{ERROR_FILE_NOT_FOUND}) << "there is no store at all";
    SetText("back");
    EXPECT_EQ(Read(below), "back");
    for (const HKEY key : {unread, below, above})
        EXPECT_EQ(RegCloseKey(key), 0);
}

TEST_F(RegistryStore, ChangeIsReadAfterTheNextOpening)
{
    for (int i = 0; i < 50; ++i) {
        const std::string text = std::to_string(100 + i);
        if (i % 2 == 0)
            SetText(text);
        else  // in place, with the same size, within one tick of the file's times
            testkit::WriteFile(Machine.Settings.location(), Header + Key + "\"v\"=\"" + text + "\"\r\n");
        EXPECT_EQ(ReadAgain(), text);
        EXPECT_EQ(ReadAgain(), text);
    }
}

TEST_F(RegistryStore, SettledStoreIsNotReadAgain)
{
    SetText("kept");
    usleep(50'000);  // until the file's times are in the past
    EXPECT_EQ(ReadAgain(), "kept");
    EXPECT_EQ(testkit::WithoutDescriptors(ReadAgain), "kept");

    SetText("changed");
    EXPECT_EQ(testkit::WithoutDescriptors(ReadAgain), "kept") << "the content that was read last";
    EXPECT_EQ(ReadAgain(), "changed");
    const std::string otherPath = Machine.Settings.location() + ".other";
    std::filesystem::rename(Machine.Settings.location(), otherPath);
    const testkit::EnvironmentVariable other("VELTRIX_REGISTRY", otherPath);
    EXPECT_EQ(testkit::WithoutDescriptors(ReadAgain), std::nullopt) << "the content of another file does not count";
    EXPECT_EQ(Result, LSTATUS{ERROR_TOO_MANY_OPEN_FILES});
}

TEST_F(RegistryStore, UnreadableStoreReportsItsReason)
{
    const auto codeOf = [](const unsigned short* path) {
        Open(path);
        return static_cast<DWORD>(Result);
    };
    EXPECT_EQ(codeOf(u"Suite"_w), ERROR_FILE_NOT_FOUND);
    SetText("x");
    EXPECT_EQ(codeOf(u"Missing"_w), ERROR_FILE_NOT_FOUND);
    {
        const testkit::EnvironmentVariable below("VELTRIX_REGISTRY", Machine.Settings.location() + "/registry.reg");
        EXPECT_EQ(codeOf(u"Suite"_w), ERROR_FILE_NOT_FOUND);
        const testkit::EnvironmentVariable folder("VELTRIX_REGISTRY", Machine.Folder.path().string());
        EXPECT_EQ(codeOf(u"Suite"_w), ERROR_ACCESS_DENIED);
    }
    ASSERT_EQ(truncate(Machine.Settings.location().c_str(), off_t{300} << 20), 0);
    EXPECT_EQ(codeOf(u"Suite"_w), ERROR_NOT_SUPPORTED);
    std::filesystem::remove(Machine.Settings.location());
    ASSERT_EQ(mkfifo(Machine.Settings.location().c_str(), 0600), 0);
    EXPECT_EQ(codeOf(u"Suite"_w), ERROR_ACCESS_DENIED) << "without waiting for a writer";
}

TEST_F(RegistryStore, ReportsDroppedLines)
{
    std::string noise = Key + "\"v\"=dword:x\r\n";
    for (int i = 0; i < 100; ++i)
        noise += "noise\n";
    Machine.Settings.Set(noise);
    const testkit::EnvironmentVariable debug("VELTRIX_DEBUG_OUTPUT", "1");
    testing::internal::CaptureStderr();
    RegCloseKey(Open());
    const std::string output = testing::internal::GetCapturedStderr();
    const std::string start = "tessmarU: " + Machine.Settings.location() + ": ";
    EXPECT_TRUE(output.starts_with(start + "line 4 ignored: the number does not have one to eight digits\n")) << output;
    EXPECT_EQ(std::count(output.begin(), output.end(), '\n'), 21);
    EXPECT_TRUE(output.ends_with(start + "81 more lines ignored\n")) << output;
}

TEST_F(RegistryStore, ReadersNeverMixTwoStatesOfTheStore)
{
    const auto fill = [](int i) { return std::string(20, static_cast<char>('a' + i % 26)); };
    SetText(fill(0));
    std::atomic<bool> end{false};
    std::atomic<int> reads{0};
    std::vector<std::thread> readers;
    for (int i = 0; i < 3; ++i) {
        readers.emplace_back([&] {
            while (!end) {
                const auto text = ReadAgain();
                EXPECT_TRUE(text) << Result;
                EXPECT_EQ(*text, std::string(20, (*text)[0]));
                ++reads;
            }
        });
    }
    for (int i = 0; i < 300 || reads < 300; ++i)
        SetText(fill(i));
    end = true;
    for (std::thread& reader : readers)
        reader.join();
}

TEST_F(RegistryStore, OutOfMemoryIsReportedAndTheNextReadWorks)
{
    int failed = 0;
    SetText("round 0");
    EXPECT_EQ(ReadAgain(), "round 0");
    for (int n = 1;; ++n) {
        SetText("round " + std::to_string(n));
        const int before = testkit::LiveBlocks();
        testkit::FailAllocation(n);
        HKEY key = nullptr;
        const LSTATUS opened = RegOpenKeyExW(HKEY_LOCAL_MACHINE, u"Suite\\Log"_w, 0, KEY_READ, &key);
        const bool reached = testkit::AllocationFailed();
        testkit::FailAllocation(0);
        EXPECT_EQ(opened == 0, key != nullptr);
        if (!reached) {
            RegCloseKey(key);
            break;
        }
        ++failed;
        // If the new state cannot be read, the key is opened in the last one. Only without memory for the key it fails.
        const auto text = key != nullptr ? Read(key) : std::nullopt;
        EXPECT_TRUE(!key || text == "round " + std::to_string(n - 1) || text == "round " + std::to_string(n)) << n;
        EXPECT_TRUE(key || opened == LSTATUS{ERROR_OUTOFMEMORY}) << n;
        if (key != nullptr)
            RegCloseKey(key);
        // What stays is at most a store that was read whole and took the place of an earlier one.
        EXPECT_LE(testkit::LiveBlocks(), before + 8);
        EXPECT_EQ(ReadAgain(), "round " + std::to_string(n));
    }
    EXPECT_GT(failed, 10);
    ReadAgain();
    const int settled = testkit::LiveBlocks();
    for (int i = 0; i < 20; ++i) {
        SetText("x");
        ReadAgain();
    }
    EXPECT_EQ(testkit::LiveBlocks(), settled);
}

TEST_F(RegistryStore, TextForTheLayerIsReadWholeOrNotAtAll)
{
    Machine.Settings.Set(Key +
                         "\"v\"=\"text\"\r\n\"odd\"=hex:61,00,62\r\n\"zero\"=hex:61,00,00,00,62,00\r\n\"e\"=hex:\r\n");
    const struct {
        const unsigned short* Name;
        const char* Text;
        DWORD Error;
    } rows[] = {{u"v"_w, "text", 0},
                {u"odd"_w, "a", 0},
                {u"zero"_w, "a", 0},
                {u"e"_w, "", 0},
                {u"w"_w, "as it was", ERROR_FILE_NOT_FOUND}};
    for (const auto& row : rows) {
        utility::wstring text = Wide("as it was");
        LSTATUS result = -1;
        EXPECT_EQ(layer::ReadStoreText(HKEY_LOCAL_MACHINE, u"Suite\\Log"_w, row.Name, text, &result), row.Error == 0);
        EXPECT_EQ(testkit::Narrow(text), row.Text);
        EXPECT_EQ(static_cast<DWORD>(result), row.Error);
    }
}

}  // namespace
