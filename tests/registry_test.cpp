#include "fail_allocation.h"
#include "registry_file.h"
#include "support.h"
#include "system.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cstring>
#include <fcntl.h>
#include <optional>
#include <sys/resource.h>
#include <sys/stat.h>
#include <thread>
#include <vector>

using namespace utility::literals;
using layer::RegistryFile;
using layer::Text;
using support::Wide;

namespace {

constexpr std::string_view Header = support::RegistryHeader;
const std::string Key = "[HKEY_LOCAL_MACHINE\\Suite\\Log]\r\n";

RegistryFile Parse(std::string_view bytes)
{
    return RegistryFile({reinterpret_cast<const BYTE*>(bytes.data()), bytes.size()});
}

std::string Utf16(std::string_view ascii)
{
    std::string bytes = "\xFF\xFE";
    for (const char letter : ascii)
        bytes += {letter, '\0'};
    return bytes;
}

/// A value as "type: text or bytes", or "none".
std::string Show(const RegistryFile& file, const char* key, const char* name)
{
    const layer::RegistryKey* const found = file.Find(HKEY_LOCAL_MACHINE, Wide(key));
    if (found == nullptr)
        return "no key";
    const auto value = found->second.find(Wide(name));
    if (value == found->second.end())
        return "none";
    const auto& [type, data] = value->second;
    std::string shown = std::to_string(type) + ":";
    for (const BYTE byte : data) {
        if (type != REG_SZ)
            shown += " " + std::to_string(byte);
        else if (byte != 0)
            shown += static_cast<char>(byte);
    }
    return shown;
}

TEST(RegistryFormat, EachLineYieldsWhatItSays)
{
    struct Case {
        std::string Body;  // behind the key line
        std::string V;     // what value "v" is then
    };
    const Case cases[] = {
        {"\"v\"=\"text\"", "1:text"},
        {"\"V\"=\"a\\\\b\\\"c\"", "1:a\\b\"c"},
        {"\"v\"=\"C:\\temp\"", "1:C:\\temp"},
        {"\"v\"=\"two\r\nlines\"", "1:two\r\nlines"},
        {"\"v\"=\"\"", "1:"},
        {"  \"v\" = \"blanks\"  ; said", "1:blanks"},
        {"\"v\"=dword:0000a0Ff", "4: 255 160 0 0"},
        {"\"v\"=dword:7", "4: 7 0 0 0"},
        {"\"v\"=hex:01,02,fF", "3: 1 2 255"},
        {"\"v\"=hex:", "3:"},
        {"\"v\"=hex(7):61,00,\\\r\n  62,00,\\\r\n  00,00", "7: 97 0 98 0 0 0"},
        {"\"v\"=hex(1a):1", "26: 1"},
        {"\"v\"=\"old\"\r\n\"v\"=\"new\"", "1:new"},
        {"\"v\"=\"old\"\r\n\"v\"=-", "none"},
        {"\"v\"=\"old\"\r\n[-HKEY_LOCAL_MACHINE\\Suite]", "no key"},
        {"\"v\"=\"old\"\r\n[-HKEY_LOCAL_MACHINE\\Sui]", "1:old"},
        {"; \"v\"=\"comment\"", "none"},
        // What is malformed is dropped, and only that.
        {"\"v\"=\"sound\"\r\n\"v\"=\"trailing\" x", "1:sound"},
        {"\"v\"=\"sound\"\r\n\"v\"", "1:sound"},
        {"\"v\"=\"sound\"\r\n\"v\"=", "1:sound"},
        {"\"v=\"broken\"", "none"},
        {"\"v\"=\"sound\"\r\n\"v\"=dword:", "1:sound"},
        {"\"v\"=\"sound\"\r\n\"v\"=dword:123456789", "1:sound"},
        {"\"v\"=\"sound\"\r\n\"v\"=dword:12g4", "1:sound"},
        {"\"v\"=\"sound\"\r\n\"v\"=hex:01,,02", "1:sound"},
        {"\"v\"=\"sound\"\r\n\"v\"=hex:01,", "1:sound"},
        {"\"v\"=\"sound\"\r\n\"v\"=hex(:01", "1:sound"},
        {"\"v\"=\"sound\"\r\n\"v\"=hex(123456789):01", "1:sound"},
        {"\"v\"=\"sound\"\r\n\"v\"=octal:01", "1:sound"},
        {"\"v\"=\"sound\"\r\nnonsense\r\n=\r\n]", "1:sound"},
        {"[HKEY_LOCAL_MACHINE\\Other\r\n\"v\"=\"whose?\"", "none"},
        {"[HKEY_NOWHERE\\Other]\r\n\"v\"=\"whose?\"", "none"},
        {"\"v\"=\"sound\"\r\n\"v\"=\"\xFF\"", "1:sound"},
        {"\"v\"=\"sound\"\r\n\"v\"=\"\xED\xA0\x80\"", "1:sound"},
        {"\"u\"=\"unclosed\r\n\"v\"=\"swallowed\r\n" + Key + "\"v\"=\"behind\"", "1:behind"},
        {"\"v\"=\"sound\"\r\n\"u\"=\"never closed\r\n", "1:sound"},
    };
    for (const Case& line : cases) {
        const std::string file = std::string(Header) + Key + line.Body + "\r\n";
        EXPECT_EQ(Show(Parse(file), "Suite\\Log", "v"), line.V) << line.Body;
        std::string lineFeeds = file;
        std::erase(lineFeeds, '\r');
        std::string expected = line.V;
        std::erase(expected, '\r');
        EXPECT_EQ(Show(Parse(lineFeeds), "Suite\\Log", "v"), expected) << line.Body;
        EXPECT_EQ(Show(Parse("\xEF\xBB\xBF" + file), "Suite\\Log", "v"), line.V) << line.Body;
        if (file.find('\xFF') == std::string::npos && file.find('\xED') == std::string::npos) {
            EXPECT_EQ(Show(Parse(Utf16(file)), "Suite\\Log", "v"), line.V) << line.Body;
        }
    }
}

TEST(RegistryFormat, NamesCompareWithoutCaseAndPathsEndAsTheyLike)
{
    const RegistryFile file = Parse(std::string(Header) +
                                    "[hkey_local_machine\\Suite\\\xC3\xA4\xC3\x96\\]\r\n@=\"unnamed\"\r\n"
                                    "\"\xC3\x84\"=\"umlaut\"\r\n");
    for (const unsigned short* const path : {u"suite\\\u00c4\u00f6"_w, u"SUITE\\\u00e4\u00d6\\"_w}) {
        const layer::RegistryKey* const key = file.Find(HKEY_LOCAL_MACHINE, path);
        ASSERT_NE(key, nullptr);
        EXPECT_EQ(key->second.size(), 2U);
        EXPECT_TRUE(key->second.contains(layer::TextView(u"\u00e4"_w)));
        EXPECT_TRUE(key->second.contains(layer::TextView()));
    }
    EXPECT_NE(file.Find(HKEY_LOCAL_MACHINE, u"Suite"_w), nullptr) << "a key above a key is there too";
    EXPECT_NE(file.Find(HKEY_LOCAL_MACHINE, {}), nullptr);
    EXPECT_EQ(file.Find(HKEY_LOCAL_MACHINE, u"Suite\\\\"_w), nullptr);
    EXPECT_EQ(file.Find(HKEY_USERS, u"Suite"_w), nullptr);
    EXPECT_EQ(file.Find(nullptr, u"Suite"_w), nullptr);
}

TEST(RegistryFormat, FileCutAnywhereYieldsWholeValuesOnly)
{
    const std::string file =
        std::string(Header) + Key +
        "\"text\"=\"/var/log/\xC3\xA4.log\"\r\n\"bytes\"=hex(2):61,00,\\\r\n  00,00\r\n@=\"last\"\r\n";
    for (const bool wide : {false, true}) {
        std::string whole = file;
        if (wide) {
            whole = file;
            whole.replace(whole.find('\xC3'), 2, "a");
            whole = Utf16(whole);
        }
        const std::string text = wide ? "1:/var/log/a.log" : "1:/var/log/\xE4.log";
        for (std::size_t length = 0; length <= whole.size(); ++length) {
            const RegistryFile cut = Parse(std::string_view(whole).substr(0, length));
            const std::string shownText = Show(cut, "Suite\\Log", "text");
            EXPECT_TRUE(shownText == text || shownText == "none" || shownText == "no key") << length << shownText;
            const std::string shownLast = Show(cut, "Suite\\Log", "");
            EXPECT_TRUE(shownLast == "1:last" || shownLast == "none" || shownLast == "no key") << length;
        }
    }
}

TEST(RegistryFormat, SaysWhichLineWasDroppedAndWhy)
{
    const support::Variable debug("VELTRIX_DEBUG_OUTPUT", "1");
    testing::internal::CaptureStderr();
    Parse(std::string(Header) + Key + "\"v\"=dword:x\r\n");
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "tessmarU: registry store: line 4 dropped: a number that is none\n");
    testing::internal::CaptureStderr();
    std::string noise;
    for (int i = 0; i < 100; ++i)
        noise += "noise\n";
    Parse(noise);
    const std::string said = testing::internal::GetCapturedStderr();
    EXPECT_EQ(std::count(said.begin(), said.end(), '\n'), 21);
    EXPECT_TRUE(said.ends_with("registry store: 80 more lines dropped\n")) << said;
}

class Registry : public testing::Test {
protected:
    void SetText(const std::string& text) const { Machine.SetRegistry(Key + "\"v\"=\"" + text + "\"\r\n"); }

    static HKEY Open(const unsigned short* path = u"Suite\\Log"_w, HKEY parent = HKEY_LOCAL_MACHINE)
    {
        HKEY key = nullptr;
        Result = RegOpenKeyExW(parent, path, 0, KEY_QUERY_VALUE, &key);
        return key;
    }

    /// The text of "v", or nothing with the reason in Result.
    static std::optional<std::string> Read(HKEY key)
    {
        WCHAR text[64]{};
        DWORD bytes = sizeof text;
        Result = RegQueryValueExW(key, u"v"_w, nullptr, nullptr, reinterpret_cast<BYTE*>(text), &bytes);
        return Result == 0 ? std::optional(support::Narrow(text)) : std::nullopt;
    }
    static std::optional<std::string> ReadAnew()
    {
        const HKEY key = Open();
        if (key == nullptr)
            return std::nullopt;
        const auto text = Read(key);
        RegCloseKey(key);
        return text;
    }

    const support::Machine Machine;
    static thread_local LSTATUS Result;
};

thread_local LSTATUS Registry::Result = 0;

TEST_F(Registry, QueryKeepsItsContract)
{
    Machine.SetRegistry(Key + "\"v\"=\"abc\"\r\n@=dword:00000001\r\n");
    const HKEY key = Open();
    DWORD type = 0;
    DWORD bytes = 0;
    EXPECT_EQ(RegQueryValueExW(key, u"V"_w, nullptr, &type, nullptr, &bytes), 0);
    EXPECT_EQ(type, REG_SZ);
    EXPECT_EQ(bytes, 8U);
    BYTE data[8] = {9};
    bytes = 7;
    EXPECT_EQ(RegQueryValueExW(key, u"v"_w, nullptr, nullptr, data, &bytes), LSTATUS{ERROR_MORE_DATA});
    EXPECT_EQ(bytes, 8U);
    EXPECT_EQ(data[0], 9) << "a buffer that is too small stays as it was";
    EXPECT_EQ(RegQueryValueExW(key, u"v"_w, nullptr, nullptr, data, &bytes), 0);
    EXPECT_EQ(data[0], 'a');
    for (const unsigned short* const unnamed : {u""_w, static_cast<const unsigned short*>(nullptr)}) {
        EXPECT_EQ(RegQueryValueExW(key, unnamed, nullptr, &type, nullptr, nullptr), 0);
        EXPECT_EQ(type, REG_DWORD);
    }
    EXPECT_EQ(RegQueryValueExW(key, u"v"_w, nullptr, nullptr, data, nullptr), LSTATUS{ERROR_INVALID_PARAMETER});
    EXPECT_EQ(RegQueryValueExW(key, u"w"_w, nullptr, nullptr, data, &bytes), LSTATUS{ERROR_FILE_NOT_FOUND});
    EXPECT_EQ(RegQueryValueExW(nullptr, u"v"_w, nullptr, nullptr, data, &bytes), LSTATUS{ERROR_INVALID_HANDLE});

    const HKEY above = Open(u"Suite"_w);
    const HKEY below = Open(u"Log\\"_w, above);
    EXPECT_EQ(Read(below), "abc");
    EXPECT_EQ(RegCloseKey(above), 0);
    EXPECT_EQ(RegCloseKey(above), LSTATUS{ERROR_INVALID_HANDLE});
    EXPECT_EQ(Open(u"Log"_w, above), nullptr);
    EXPECT_EQ(Result, LSTATUS{ERROR_INVALID_HANDLE});
    EXPECT_EQ(Read(below), "abc");
    RegCloseKey(below);
    RegCloseKey(key);
    EXPECT_EQ(RegCloseKey(HKEY_LOCAL_MACHINE), 0);
}

TEST_F(Registry, ChangeShowsAtTheNextOpeningAlone)
{
    for (int i = 0; i < 50; ++i) {
        const std::string text = std::to_string(100 + i);
        if (i % 2 == 0)
            SetText(text);
        else  // in place, of the same size, within one tick of the file's time
            support::WriteFile(Machine.Store, std::string(Header) + Key + "\"v\"=\"" + text + "\"\r\n");
        EXPECT_EQ(ReadAnew(), text);
    }
    const HKEY key = Open();
    SetText("changed");
    EXPECT_EQ(Read(key), "149");
    RegCloseKey(key);
    EXPECT_EQ(ReadAnew(), "changed");
}

TEST_F(Registry, StoreThatCannotBeReadSaysWhy)
{
    EXPECT_EQ(Open(), nullptr);
    EXPECT_EQ(Result, LSTATUS{ERROR_FILE_NOT_FOUND});
    SetText("x");
    EXPECT_EQ(Open(u"Missing"_w), nullptr);
    EXPECT_EQ(Result, LSTATUS{ERROR_FILE_NOT_FOUND});
    std::filesystem::remove(Machine.Store);
    ASSERT_EQ(mkfifo(Machine.Store.c_str(), 0600), 0);
    EXPECT_EQ(Open(), nullptr) << "and does not wait for a writer";
    EXPECT_EQ(Result, LSTATUS{ERROR_ACCESS_DENIED});
    std::filesystem::remove(Machine.Store);
    support::WriteFile(Machine.Store, "");
    ASSERT_EQ(truncate(Machine.Store.c_str(), off_t{300} << 20), 0);
    EXPECT_EQ(Open(), nullptr);
    EXPECT_EQ(Result, LSTATUS{ERROR_MORE_DATA});

    SetText("x");
    struct rlimit before {};
    getrlimit(RLIMIT_NOFILE, &before);
    const struct rlimit none {
        0, before.rlim_max
    };
    setrlimit(RLIMIT_NOFILE, &none);
    const HKEY key = Open();
    const LSTATUS result = Result;
    setrlimit(RLIMIT_NOFILE, &before);
    EXPECT_EQ(key, nullptr);
    EXPECT_EQ(result, LSTATUS{ERROR_TOO_MANY_OPEN_FILES});
    EXPECT_EQ(ReadAnew(), "x");
}

TEST_F(Registry, ReadersNeverSeeHalfOfAReplacedStore)
{
    const auto fill = [](int i) { return std::string(20, static_cast<char>('a' + i % 26)); };
    SetText(fill(0));
    std::atomic<bool> end{false};
    std::atomic<int> reads{0};
    std::vector<std::thread> readers;
    for (int i = 0; i < 3; ++i) {
        readers.emplace_back([&] {
            while (!end) {
                const auto text = ReadAnew();
                ASSERT_TRUE(text) << Result;
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

TEST_F(Registry, MemoryThatRunsOutIsToldAndForgotten)
{
    int failed = 0;
    for (int n = 1;; ++n) {
        SetText("round " + std::to_string(n));
        support::FailAllocation(n);
        const HKEY key = Open();
        const bool reached = support::AllocationFailed();
        support::FailAllocation(0);
        if (!reached) {
            EXPECT_EQ(RegCloseKey(key), 0);
            break;
        }
        ++failed;
        EXPECT_EQ(key, nullptr);
        EXPECT_EQ(Result, LSTATUS{ERROR_OUTOFMEMORY});
        EXPECT_EQ(ReadAnew(), "round " + std::to_string(n));
    }
    EXPECT_GT(failed, 5);
    const int before = support::LiveBlocks();
    for (int i = 0; i < 10; ++i)
        ReadAnew();
    EXPECT_LE(support::LiveBlocks(), before + 1);
}

}  // namespace
