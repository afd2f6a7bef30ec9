// Resources on Linux: rows and message tables of the program, and of files that are built here, also malformed ones.
#include "library.h"
#include "messages/message_table.h"
#include "modules/modules.h"
#include "resources/module_resources.h"
#include "testkit/bytes.h"
#include "testkit/exact_copy.h"
#include "testkit/resource_builder.h"
#include "testkit/text.h"
#include "testkit/utf16.h"

#include <cstring>
#include <gtest/gtest.h>
#include <map>
#include <vector>

namespace {

using testkit::EncodeUtf16;
using testkit::Half;
using testkit::Narrow;
using testkit::ResourceBuilder;
using testkit::Word;

constexpr unsigned short Guard = 0xBEEF;

std::string StringBlock(std::map<unsigned, std::string> rows)
{
    std::string data;
    for (unsigned row = 0; row < 16; ++row)
        data += Half(rows[row].size()) + EncodeUtf16(rows[row]);
    return data;
}

void AddStrings(ResourceBuilder& file, unsigned block, unsigned language, const std::map<unsigned, std::string>& rows)
{
    file.Add(ResourceBuilder::Number(6), ResourceBuilder::Number(block), language, StringBlock(rows));
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

TEST(Resources, LanguagesAndNames)
{
    ResourceBuilder file;
    file.Add(ResourceBuilder::Number(10), ResourceBuilder::Number(1), 0x407, "German");
    file.Add(ResourceBuilder::Number(10), ResourceBuilder::Name("odd"), 0x409, "named");
    file.Add(ResourceBuilder::Name("KIND"), ResourceBuilder::Number(1), 0x409, "of a kind");
    file.Add(ResourceBuilder::Number(10), ResourceBuilder::Number(2), 0x40C, "French");
    EXPECT_EQ("German", Data(file.Content, 10, 1));
    EXPECT_EQ("French", Data(file.Content, 10, 2));
    EXPECT_EQ("none", Data(file.Content, 10, 3));
    file.Add(ResourceBuilder::Number(10), ResourceBuilder::Number(1), 0, "neutral");
    EXPECT_EQ("neutral", Data(file.Content, 10, 1));
    file.Add(ResourceBuilder::Number(10), ResourceBuilder::Number(1), 0x409, "English");
    EXPECT_EQ("English", Data(file.Content, 10, 1));
    // Two concatenated files are one.
    EXPECT_EQ("French", Data(ResourceBuilder().Content + file.Content, 10, 2));
}

TEST(Resources, FileCutAnywhere)
{
    ResourceBuilder file;
    file.Add(ResourceBuilder::Name("A"), ResourceBuilder::Name("BC"), 0x407, "1234567");
    AddStrings(file, 1, 0x407, {{2, "before"}, {3, "second"}});
    ASSERT_EQ("second", Row(file.Content, 3));
    for (std::size_t length = 0; length < file.Content.size(); ++length) {
        const testkit::ExactCopy<std::byte> bytes(file.Content.data(), length);
        const layer::Bytes view = bytes.view();
        EXPECT_TRUE(layer::FindString(view, 3).empty()) << length;
        EXPECT_FALSE(layer::FindResource(view, 6, 1)) << length;
    }
}

TEST(Resources, WrongLengths)
{
    ResourceBuilder file;
    const std::size_t entry = file.Content.size();
    AddStrings(file, 1, 0x409, {{0, "before"}, {1, "second"}});
    const std::uint32_t lengths[] = {0, 4, 7, 12, 20, 27, 0x7FFFFFFC, 0xFFFFFFFC, 0xFFFFFFFF};
    for (const std::uint32_t length : lengths) {
        std::string header = file.Content;
        header.replace(entry + 4, 4, Word(length));
        EXPECT_EQ("", Row(header, 1)) << length;
        std::string data = file.Content;
        data.replace(entry, 4, Word(length));
        EXPECT_NE("second", Row(data, 1)) << length;
    }
    // A row that claims more units than its block has, and a block that is too short.
    std::string row = file.Content;
    row.replace(entry + 32, 2, Half(0xFFFF));
    EXPECT_EQ("", Row(row, 0));
    EXPECT_EQ("", Row(row, 1));
    ResourceBuilder brief;
    brief.Add(ResourceBuilder::Number(6), ResourceBuilder::Number(1), 0x409, Half(1) + "xy" + "z");
    EXPECT_EQ("", Row(brief.Content, 1));
}

TEST(Resources, MissingRowLeavesTheBufferAlone)
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
    EXPECT_EQ(ERROR_RESOURCE_NAME_NOT_FOUND, refusal(nullptr, 65536 + 256));
    EXPECT_EQ(ERROR_INVALID_PARAMETER, refusal(nullptr, 256, 0));
    EXPECT_EQ(ERROR_INVALID_PARAMETER, refusal(nullptr, 256, -1));
    // The C library has no resources. Neither has an address that is not a module.
    const HINSTANCE library = GetModuleHandleW(testkit::Wide("libc.so.6").c_str());
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
           EncodeUtf16("wide") + Half(8) + Half(0) + "abc" + std::string(1, '\0') + Half(lengthOf11) + Half(0) + "last";
}

std::string FileWith(const std::string& table)
{
    ResourceBuilder file;
    file.Add(ResourceBuilder::Number(11), ResourceBuilder::Number(1), 0x409, table);
    return file.Content;
}

TEST(ResourcesOnLinux, MessageTables)
{
    const std::string valid = FileWith(MessageTable(40, 8));
    EXPECT_EQ(Message(valid, 7), "wide");
    EXPECT_EQ(Message(valid, 10), std::string("abc", 4));
    EXPECT_EQ(Message(valid, 11), "last");
    EXPECT_EQ(Message(valid, 8), "error 317");
    EXPECT_EQ(Message({}, 7), "error 1812");
    EXPECT_EQ(Message(ResourceBuilder().Content, 7), "error 1813");
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
