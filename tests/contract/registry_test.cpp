// Contract of the settings store, read by the registry calls. Each call returns its result directly.
#include "system.h"
#include "testkit/test_machine.h"
#include "testkit/text.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <vector>

using namespace utility::literals;
using platform::Wide;

namespace {

constexpr const unsigned short* NoName = nullptr;

class Registry : public testing::Test {
protected:
    Registry()
    {
        Machine.Settings.Set(
            "[HKEY_LOCAL_MACHINE]\r\n\"top\"=\"of the hive\"\r\n"
            "[HKEY_LOCAL_MACHINE\\Suite\\Log]\r\n\"text\"=\"abc\"\r\n@=dword:12345678\r\n\"empty\"=\"\"\r\n"
            "\"bytes\"=hex:01,00,ff\r\n\"none\"=hex(0):05\r\n\"typed\"=hex(2):61,00,00,00,62,00,00,00\r\n"
            "\"odd\"=hex(1):61,00,62\r\n\"nothing\"=hex:\r\n\"\xC3\xA4\"=\"umlaut\"\r\n"
            "[HKEY_LOCAL_MACHINE\\Suite\\\xC3\xA4\xC3\x96\xE4\xB8\xAD]\r\n\"v\"=\"x\"\r\n");
    }

    static LSTATUS Open(const unsigned short* path, HKEY parent, HKEY& key)
    {
        return RegOpenKeyExW(parent, Wide(path), 0, KEY_READ, &key);
    }
    static HKEY OpenLog()
    {
        HKEY key = nullptr;
        EXPECT_EQ(Open(u"Suite\\Log"_w, HKEY_LOCAL_MACHINE, key), 0);
        return key;
    }
    static LSTATUS Query(HKEY key, const unsigned short* name, DWORD* type, BYTE* data, DWORD* bytes)
    {
        return RegQueryValueExW(key, Wide(name), nullptr, type, data, bytes);
    }

    const testkit::TestMachine Machine;
};

TEST_F(Registry, ValuesAreReadAsStored)
{
    using Bytes = std::vector<BYTE>;
    const struct {
        const unsigned short* Name;
        DWORD Type;
        Bytes Data;
    } rows[] = {
        {u"text"_w, REG_SZ, {'a', 0, 'b', 0, 'c', 0, 0, 0}},
        {u"TexT"_w, REG_SZ, {'a', 0, 'b', 0, 'c', 0, 0, 0}},
        {u"empty"_w, REG_SZ, {0, 0}},
        {u""_w, REG_DWORD, {0x78, 0x56, 0x34, 0x12}},
        {NoName, REG_DWORD, {0x78, 0x56, 0x34, 0x12}},
        {u"bytes"_w, REG_BINARY, {1, 0, 0xFF}},
        {u"none"_w, REG_NONE, {5}},
        {u"typed"_w, 2, {'a', 0, 0, 0, 'b', 0, 0, 0}},
        {u"odd"_w, REG_SZ, {'a', 0, 'b'}},
        {u"nothing"_w, REG_BINARY, {}},
        {u"\u00c4"_w, REG_SZ, {'u', 0, 'm', 0, 'l', 0, 'a', 0, 'u', 0, 't', 0, 0, 0}},
    };
    const HKEY key = OpenLog();
    for (const auto& row : rows) {
        const std::string name = row.Name == nullptr ? "null" : testkit::Narrow(row.Name);
        DWORD type = 99;
        DWORD bytes = 99;
        EXPECT_EQ(Query(key, row.Name, &type, nullptr, &bytes), 0) << name;
        EXPECT_EQ(type, row.Type) << name;
        EXPECT_EQ(bytes, row.Data.size()) << name;

        Bytes data(64, 0xEE);
        bytes = static_cast<DWORD>(data.size());
        EXPECT_EQ(Query(key, row.Name, nullptr, data.data(), &bytes), 0) << name;
        data.resize(bytes);
        EXPECT_EQ(data, row.Data) << name;
    }
    EXPECT_EQ(RegCloseKey(key), 0);
}

TEST_F(Registry, ValueNeedsALargeEnoughBuffer)
{
    const HKEY key = OpenLog();
    for (const DWORD room : {DWORD{0}, DWORD{1}, DWORD{7}, DWORD{8}, DWORD{9}}) {
        BYTE data[16];
        std::memset(data, 0xEE, sizeof data);
        DWORD type = 0;
        DWORD bytes = room;
        const LSTATUS result = Query(key, u"text"_w, &type, data, &bytes);
        EXPECT_EQ(static_cast<DWORD>(result), room < 8 ? DWORD{ERROR_MORE_DATA} : DWORD{ERROR_SUCCESS}) << room;
        EXPECT_EQ(bytes, 8U) << room << ": the size of the value is returned in any case";
        EXPECT_EQ(type, DWORD{REG_SZ}) << room;
        EXPECT_EQ(data[std::max(room, bytes)], 0xEE) << room << ": nothing after the buffer is written";
    }
    DWORD type = 0;
    EXPECT_EQ(Query(key, u"text"_w, &type, nullptr, nullptr), 0) << "the type alone";
    EXPECT_EQ(type, DWORD{REG_SZ});
    EXPECT_EQ(Query(key, u"text"_w, nullptr, nullptr, nullptr), 0) << "whether it exists";
    RegCloseKey(key);
}

TEST_F(Registry, QueryRefusesMissingValuesAndBadArguments)
{
    const HKEY key = OpenLog();
    BYTE data[8] = {9};
    DWORD bytes = sizeof data;
    EXPECT_EQ(Query(key, u"absent"_w, nullptr, data, &bytes), LSTATUS{ERROR_FILE_NOT_FOUND});
    EXPECT_EQ(Query(key, u"text\\"_w, nullptr, data, &bytes), LSTATUS{ERROR_FILE_NOT_FOUND});
    EXPECT_EQ(data[0], 9) << "a failed read leaves the buffer alone";
    EXPECT_EQ(Query(key, u"absent"_w, nullptr, nullptr, &bytes), LSTATUS{ERROR_FILE_NOT_FOUND});
    EXPECT_EQ(bytes, 0U) << "a missing value has no size";
    EXPECT_EQ(Query(key, u"text"_w, nullptr, data, nullptr), LSTATUS{ERROR_INVALID_PARAMETER});
    EXPECT_EQ(RegQueryValueExW(key, Wide(u"text"_w), &bytes, nullptr, nullptr, &bytes),
              LSTATUS{ERROR_INVALID_PARAMETER});
    EXPECT_EQ(Query(nullptr, u"text"_w, nullptr, data, &bytes), LSTATUS{ERROR_INVALID_HANDLE});
    RegCloseKey(key);
    EXPECT_EQ(Query(key, u"text"_w, nullptr, data, &bytes), LSTATUS{ERROR_INVALID_HANDLE});
}

TEST_F(Registry, PathsLeadToKeys)
{
    const struct {
        const unsigned short* Path;
        DWORD Result;
    } rows[] = {
        {u"Suite"_w, ERROR_SUCCESS},
        {u"Suite\\Log"_w, ERROR_SUCCESS},
        {u"sUITE\\lOG"_w, ERROR_SUCCESS},
        {u"Suite\\Log\\"_w, ERROR_SUCCESS},
        {u"Suite\\Log\\\\"_w, ERROR_SUCCESS},
        {u"Suite\\\\Log"_w, ERROR_SUCCESS},
        {u"suite\\\u00c4\u00f6\u4e2d"_w, ERROR_SUCCESS},
        {u"\\Suite"_w, DWORD{ERROR_BAD_PATHNAME}},
        {u"\\None"_w, DWORD{ERROR_BAD_PATHNAME}},
        {u"\\"_w, DWORD{ERROR_BAD_PATHNAME}},
        {u"Log"_w, ERROR_FILE_NOT_FOUND},
        {u"Suit"_w, ERROR_FILE_NOT_FOUND},
        {u"Suite\\Log\\More"_w, ERROR_FILE_NOT_FOUND},
        {u"Suite\\Log\\text"_w, ERROR_FILE_NOT_FOUND},
        {u"None\\Log"_w, ERROR_FILE_NOT_FOUND},
        {u"Suite/Log"_w, ERROR_FILE_NOT_FOUND},
        {u"Suite "_w, ERROR_FILE_NOT_FOUND},
    };
    for (const auto& row : rows) {
        HKEY key = HKEY_LOCAL_MACHINE;  // a failure replaces it by null
        const LSTATUS result = Open(row.Path, HKEY_LOCAL_MACHINE, key);
        EXPECT_EQ(static_cast<DWORD>(result), row.Result) << testkit::Narrow(row.Path);
        EXPECT_EQ(key != nullptr, row.Result == 0) << testkit::Narrow(row.Path);
        if (key != nullptr) {
            EXPECT_EQ(RegCloseKey(key), 0);
        }
    }
}

TEST_F(Registry, KeysOpenBelowOpenKeys)
{
    HKEY above = nullptr;
    HKEY below = nullptr;
    HKEY same = nullptr;
    ASSERT_EQ(Open(u"Suite\\"_w, HKEY_LOCAL_MACHINE, above), 0);
    ASSERT_EQ(Open(u"Log\\"_w, above, below), 0);
    for (const unsigned short* const path : {u""_w, NoName}) {
        ASSERT_EQ(Open(path, below, same), 0);
        EXPECT_NE(same, below);
        EXPECT_EQ(Query(same, u"text"_w, nullptr, nullptr, nullptr), 0);
        EXPECT_EQ(RegCloseKey(same), 0);
    }
    EXPECT_EQ(RegCloseKey(above), 0);
    EXPECT_EQ(Query(below, u"text"_w, nullptr, nullptr, nullptr), 0) << "independent of the key above it";
    EXPECT_EQ(RegCloseKey(below), 0);
}

TEST_F(Registry, HiveIsAlwaysOpen)
{
    HKEY same = nullptr;
    EXPECT_EQ(Open(u""_w, HKEY_LOCAL_MACHINE, same), 0);
    EXPECT_EQ(same, HKEY_LOCAL_MACHINE);
    for (int i = 0; i < 2; ++i) {
        EXPECT_EQ(Query(HKEY_LOCAL_MACHINE, u"top"_w, nullptr, nullptr, nullptr), 0);
        EXPECT_EQ(RegCloseKey(HKEY_LOCAL_MACHINE), 0);
    }
}

TEST_F(Registry, ClosedKeyIsRefused)
{
    HKEY key = nullptr;
    EXPECT_EQ(Open(u"Suite"_w, nullptr, key), LSTATUS{ERROR_INVALID_HANDLE});
    EXPECT_EQ(RegOpenKeyExW(HKEY_LOCAL_MACHINE, Wide(u"Suite"_w), 0, KEY_READ, nullptr),
              LSTATUS{ERROR_INVALID_PARAMETER});
    EXPECT_EQ(RegCloseKey(nullptr), LSTATUS{ERROR_INVALID_HANDLE});
    const HKEY closed = OpenLog();
    EXPECT_EQ(RegCloseKey(closed), 0);
    EXPECT_EQ(RegCloseKey(closed), LSTATUS{ERROR_INVALID_HANDLE}) << "a key closes once";
    key = HKEY_LOCAL_MACHINE;
    EXPECT_EQ(Open(u"Log"_w, closed, key), LSTATUS{ERROR_INVALID_HANDLE});
    EXPECT_EQ(key, nullptr);
}

TEST_F(Registry, ChangeIsReadAfterTheNextOpening)
{
    for (const char* const text : {"one", "another", "last"}) {
        Machine.Settings.Set("[HKEY_LOCAL_MACHINE\\Suite\\Log]\r\n\"text\"=\"" + std::string(text) + "\"\r\n");
        const HKEY key = OpenLog();
        unsigned short data[16]{};
        DWORD bytes = sizeof data;
        EXPECT_EQ(Query(key, u"text"_w, nullptr, reinterpret_cast<BYTE*>(data), &bytes), 0);
        EXPECT_EQ(testkit::Narrow(data), text);
        EXPECT_EQ(RegCloseKey(key), 0);
    }
}

}  // namespace
