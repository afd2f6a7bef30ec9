// Rows and resources of modules: the program's own, and files made here, malformed ones among them.
#include "library.h"
#include "messages/message_table.h"
#include "modules/modules.h"
#include "resource_bytes.h"
#include "resources/module_resources.h"
#include "support.h"

#include <cstring>
#include <gtest/gtest.h>
#include <map>
#include <memory>
#include <vector>

namespace {

using support::Half;
using support::Narrow;
using support::ResourceFile;
using support::Units;
using support::Word;

constexpr unsigned short Guard = 0xBEEF;

std::string StringBlock(std::map<unsigned, std::string> rows)
{
    std::string data;
    for (unsigned row = 0; row < 16; ++row)
        data += Half(rows[row].size()) + Units(rows[row]);
    return data;
}

void AddStrings(ResourceFile& file, unsigned block, unsigned language, const std::map<unsigned, std::string>& rows)
{
    file.Add(ResourceFile::Number(6), ResourceFile::Number(block), language, StringBlock(rows));
}

layer::Bytes View(const std::string& content)
{
    return std::as_bytes(std::span(content));
}

std::string Row(const std::string& file, UINT row)
{
    const layer::Bytes bytes = layer::FindString(View(file), row);
    utility::wstring text(bytes.size() / 2, 0);
    if (!bytes.empty())
        std::memcpy(text.data(), bytes.data(), bytes.size());
    return Narrow(text);
}

std::string Data(const std::string& file, WORD type, WORD name)
{
    const auto data = layer::FindResource(View(file), type, name);
    return data ? std::string(reinterpret_cast<const char*>(data->data()), data->size()) : "none";
}

TEST(Resources, RowsByBlock)
{
    ResourceFile file;
    AddStrings(file, 1, 0x409, {{0, "row 0"}, {15, "row 15"}});
    AddStrings(file, 17, 0x409, {{0, "row 256"}, {5, "row 261"}});
    AddStrings(file, 4096, 0x409, {{15, "row 65535"}});
    const struct {
        UINT Number;
        const char* Expected;
    } rows[] = {{0, "row 0"},         {15, "row 15"}, {256, "row 256"}, {261, "row 261"},
                {65535, "row 65535"}, {1, ""},        {16, ""},         {65536 + 256, ""}};
    for (const auto& row : rows)
        EXPECT_EQ(row.Expected, Row(file.Content, row.Number)) << row.Number;
}

TEST(Resources, LanguagesAndNames)
{
    ResourceFile file;
    file.Add(ResourceFile::Number(10), ResourceFile::Number(1), 0x407, "German");
    file.Add(ResourceFile::Number(10), ResourceFile::Name("odd"), 0x409, "named");
    file.Add(ResourceFile::Name("KIND"), ResourceFile::Number(1), 0x409, "of a kind");
    file.Add(ResourceFile::Number(10), ResourceFile::Number(2), 0x40C, "French");
    EXPECT_EQ("German", Data(file.Content, 10, 1));
    EXPECT_EQ("French", Data(file.Content, 10, 2));
    EXPECT_EQ("none", Data(file.Content, 10, 3));
    file.Add(ResourceFile::Number(10), ResourceFile::Number(1), 0, "neutral");
    EXPECT_EQ("neutral", Data(file.Content, 10, 1));
    file.Add(ResourceFile::Number(10), ResourceFile::Number(1), 0x409, "English");
    EXPECT_EQ("English", Data(file.Content, 10, 1));
    // Two files behind each other are one.
    EXPECT_EQ("French", Data(ResourceFile().Content + file.Content, 10, 2));
}

TEST(Resources, AFileMayEndAnywhere)
{
    ResourceFile file;
    file.Add(ResourceFile::Name("A"), ResourceFile::Name("BC"), 0x407, "1234567");
    AddStrings(file, 1, 0x407, {{2, "before"}, {3, "second"}});
    ASSERT_EQ("second", Row(file.Content, 3));
    for (std::size_t length = 0; length < file.Content.size(); ++length) {
        // On the heap at its exact size, so that tools see every byte that is read beyond it.
        const std::unique_ptr<char[]> bytes(new char[length]);
        std::memcpy(bytes.get(), file.Content.data(), length);
        const layer::Bytes view = std::as_bytes(std::span(bytes.get(), length));
        EXPECT_TRUE(layer::FindString(view, 3).empty()) << length;
        EXPECT_FALSE(layer::FindResource(view, 6, 1)) << length;
    }
}

TEST(Resources, LengthsThatLie)
{
    ResourceFile file;
    const std::size_t entry = file.Content.size();
    AddStrings(file, 1, 0x409, {{0, "before"}, {1, "second"}});
    const std::uint32_t lies[] = {0, 4, 7, 12, 20, 27, 0x7FFFFFFC, 0xFFFFFFFC, 0xFFFFFFFF};
    for (const std::uint32_t lie : lies) {
        std::string header = file.Content;
        header.replace(entry + 4, 4, Word(lie));
        EXPECT_EQ("", Row(header, 1)) << lie;
        std::string data = file.Content;
        data.replace(entry, 4, Word(lie));
        EXPECT_NE("second", Row(data, 1)) << lie;
    }
    // A row that claims more units than its block has, and a block that stops short.
    std::string row = file.Content;
    row.replace(entry + 32, 2, Half(0xFFFF));
    EXPECT_EQ("", Row(row, 0));
    EXPECT_EQ("", Row(row, 1));
    ResourceFile brief;
    brief.Add(ResourceFile::Number(6), ResourceFile::Number(1), 0x409, Half(1) + "xy" + "z");
    EXPECT_EQ("", Row(brief.Content, 1));
}

TEST(Resources, RowsOfTheProgram)
{
    const struct {
        UINT Row;
        const char* Text;
    } rows[] = {{256, "SOFTWARE\\Orvane Electronics Limited\\Veltrix\\"},
                {257, "Tag Server\\"},
                {258, "Protocol\\"},
                {259, "Log\\Application"},
                {260, "Token Processing"},
                {261, "UDP"},
                {270, "4.09.00"},
                {271, "en"}};
    const HINSTANCE program = layer::ModuleOf(reinterpret_cast<const void*>(&Guard));
    ASSERT_NE(nullptr, program);
    for (const HINSTANCE module : {program, HINSTANCE{nullptr}}) {
        for (const auto& row : rows) {
            unsigned short buffer[64];
            EXPECT_EQ(static_cast<int>(std::strlen(row.Text)), LoadStringW(module, row.Row, buffer, 64));
            EXPECT_EQ(row.Text, Narrow(buffer));
        }
    }
    constexpr WORD versionType = 16;
    EXPECT_TRUE(layer::FindResource(layer::ModuleResources(program), versionType, 1));
}

TEST(Resources, WhatIsNotThereLeavesTheBufferAlone)
{
    unsigned short buffer[4] = {Guard, Guard, Guard, Guard};
    const auto refusal = [&](HINSTANCE module, UINT row, int size = 4) {
        SetLastError(0);
        EXPECT_EQ(0, LoadStringW(module, row, buffer, size));
        EXPECT_EQ(Guard, buffer[0]);
        return GetLastError();
    };
    EXPECT_EQ(ERROR_RESOURCE_NAME_NOT_FOUND, refusal(nullptr, 262));
    EXPECT_EQ(ERROR_RESOURCE_NAME_NOT_FOUND, refusal(nullptr, 9999));
    EXPECT_EQ(ERROR_INVALID_PARAMETER, refusal(nullptr, 256, 0));
    EXPECT_EQ(ERROR_INVALID_PARAMETER, refusal(nullptr, 256, -1));
    // The C library has no resources, and an address that is no module has none either.
    const HINSTANCE library = GetModuleHandleW(support::Wide("libc.so.6").c_str());
    ASSERT_NE(nullptr, library);
    EXPECT_EQ(ERROR_RESOURCE_DATA_NOT_FOUND, refusal(library, 256));
    EXPECT_EQ(ERROR_RESOURCE_DATA_NOT_FOUND, refusal(reinterpret_cast<HINSTANCE>(std::uintptr_t{4096}), 256));
}

std::string Message(const std::string& file, DWORD number)
{
    layer::Text text;
    const DWORD error = layer::FindMessage(View(file), number, text);
    return error == ERROR_SUCCESS ? Narrow(text) : "error " + std::to_string(error);
}

/// A message table with a block for number 7 and one from 10 to 11.
std::string MessageTable(std::size_t secondBlockAt, unsigned lengthOf11)
{
    return Word(2) + Word(7) + Word(7) + Word(28) + Word(10) + Word(11) + Word(secondBlockAt) + Half(12) + Half(1) +
           Units("wide") + Half(8) + Half(0) + "abc" + std::string(1, '\0') + Half(lengthOf11) + Half(0) + "last";
}

std::string FileWith(const std::string& table)
{
    ResourceFile file;
    file.Add(ResourceFile::Number(11), ResourceFile::Number(1), 0x409, table);
    return file.Content;
}

TEST(ResourcesOnLinux, MessageTables)
{
    const std::string sound = FileWith(MessageTable(40, 8));
    EXPECT_EQ(Message(sound, 7), "wide");
    EXPECT_EQ(Message(sound, 10), std::string("abc", 4));
    EXPECT_EQ(Message(sound, 11), "last");
    for (const DWORD number : {6U, 8U, 9U, 12U, 0xFFFFFFFFU})
        EXPECT_EQ(Message(sound, number), "error 317") << number;
    EXPECT_EQ(Message({}, 7), "error 1812");
    EXPECT_EQ(Message(ResourceFile().Content, 7), "error 1813");
}

TEST(ResourcesOnLinux, MalformedMessageTables)
{
    for (const unsigned length : {0U, 3U, 9U, 0xFFFFU})
        EXPECT_EQ(Message(FileWith(MessageTable(40, length)), 11), "error 317") << length;
    for (const std::size_t at : {std::size_t{41}, std::size_t{55}, std::size_t{57}, std::size_t{0xFFFFFFFF}})
        EXPECT_EQ(Message(FileWith(MessageTable(at, 8)), 10), "error 317") << at;
    const std::string table = MessageTable(40, 8);
    for (std::size_t bytes = 0; bytes < table.size(); ++bytes)
        EXPECT_EQ(Message(FileWith(table.substr(0, bytes)), 11), "error 317") << bytes;
}

TEST(OwnModule, OfTheStaticLibraryIsTheProgram)
{
    ASSERT_NE(ModuleInstance, nullptr) << "the linker has left out the entry point";
    EXPECT_EQ(ModuleInstance, GetModuleHandleW(nullptr));
}

}  // namespace
