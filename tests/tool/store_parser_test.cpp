// The tool's reader of settings stores against the library's: both find the same values and drop the same lines.
#include "settings/store_parser.h"

#include "store/export_file.h"
#include "testkit/file_content.h"
#include "text/utf8.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <random>

namespace {

using layer::RegistrySnapshot;

/// A value as text, or "none".
std::string InLibrary(const RegistrySnapshot& library, const tool::StoreValue& asked)
{
    const std::size_t end = std::min(asked.Key.find('\\'), asked.Key.size());
    const auto hive = RegistrySnapshot::FindHive(layer::FromUtf8(asked.Key.substr(0, end)));
    if (!hive)
        return "none";
    const std::string below = asked.Key.substr(std::min(end + 1, asked.Key.size()));
    const auto key = library.FindKey(library.PathOf(*hive), layer::FromUtf8(below));
    const auto value = key ? library.FindValue(*key, layer::FromUtf8(asked.Name)) : std::nullopt;
    return value ? std::to_string(value->Type) + " " + std::string(value->Data.begin(), value->Data.end()) : "none";
}

std::string InTool(const tool::Store& store, const tool::StoreValue& asked)
{
    const tool::StoreValue* const value = store.Find(asked.Key, asked.Name);
    return value == nullptr ? "none" : std::to_string(value->Type) + " " + value->Data;
}

/// Compares all that the tool finds in a store, and the values that `asked` names.
void Compare(const std::string& file, const std::vector<tool::StoreValue>& asked = {})
{
    layer::FileReport report;
    const RegistrySnapshot library = layer::ReadRegistryFile(file, report);
    const tool::Store store = tool::ParseStore(file);
    for (const auto* values : {&store.Values, &asked}) {
        for (const tool::StoreValue& value : *values)
            ASSERT_EQ(InTool(store, value), InLibrary(library, value)) << value.Key << "|" << value.Name << "\n"
                                                                       << file;
    }
    std::vector<std::size_t> dropped;
    bool lacksHeader = false;
    for (const tool::StoreFault& fault : store.Faults) {
        if (fault.Text.starts_with("the line is ignored: "))
            dropped.push_back(fault.Line);
        lacksHeader = lacksHeader || fault.Text.starts_with("the file does not begin");
    }
    ASSERT_EQ(dropped.size(), report.DroppedCount) << file;
    for (std::size_t i = 0; i < report.Dropped.size(); ++i)
        ASSERT_EQ(dropped[i], report.Dropped[i].Number) << file;
    ASSERT_EQ(lacksHeader, report.LacksHeader) << file;
}

const std::string Heading = "Windows Registry Editor Version 5.00\r\n\r\n[HKEY_LOCAL_MACHINE\\K]\r\n";

struct Shape {
    const char* Name;
    std::string File;
    std::string Values;  // "name:line" of those that count, in the order of their lines
    std::string Dropped;
};

const Shape Shapes[] = {
    {"number and text", Heading + "\"a\"=dword:1f\r\n@=\"x\"\r\n", "a:4 :5 ", ""},
    {"the later line counts", Heading + "\"a\"=dword:1\r\n\"A\"=dword:2\r\n", "A:5 ", ""},
    {"bytes over lines", Heading + "\"a\"=hex(2):41,\\\r\n ; note\r\n\r\n  00,\\\r\n  00,00\r\n\"b\"=dword:1\r\n",
     "a:4 b:9 ", ""},
    {"a text over lines", Heading + "\"a\"=\"one\r\ntwo\"\r\n\"b\"=\"x\"\r\n", "a:4 b:6 ", ""},
    {"an open text", Heading + "\"a\"=\"one\r\n\"b\"=\"x\"\r\n", "b:5 ", "4 "},
    {"removals", Heading + "\"a\"=\"x\"\r\n\"b\"=\"y\"\r\n\"a\"=-\r\n[-HKEY_LOCAL_MACHINE\\K]\r\n\"c\"=\"z\"\r\n", "",
     "8 "},
    {"cut off", Heading + "\"a\"=\"x\"\r\n\"b\"=dword:0000123", "a:4 ", "5 "},
    {"line ends", "REGEDIT4\r[HKEY_USERS\\K]\r\"a\"=\"1\"\n\n\"b\"=\"2\"\r\r\n\"c\"=\"3\"", "a:3 b:5 c:7 ", ""},
    {"no text", Heading + "\"a\"=\"\xFF\"\r\n\"b\"=\"\xC3\xA4\"\r\n", "b:5 ", "4 "},
    {"brackets", "REGEDIT4\n[hkey_users\\\\a]b]\\] ; note\n\"a\"=\"1\"\n[NO\\K]\n\"b\"=\"1\"\n", "a:3 ", "4 5 "},
};

TEST(StoreParser, FindsTheLinesOfValues)
{
    for (const Shape& shape : Shapes) {
        SCOPED_TRACE(shape.Name);
        const tool::Store store = tool::ParseStore(shape.File);
        std::string values;
        for (const tool::StoreValue& value : store.Values)
            values += value.Name + ":" + std::to_string(value.Line) + " ";
        std::string dropped;
        for (const tool::StoreFault& fault : store.Faults) {
            if (fault.Text.starts_with("the line is ignored"))
                dropped += std::to_string(fault.Line) + " ";
        }
        EXPECT_EQ(values, shape.Values);
        EXPECT_EQ(dropped, shape.Dropped);
        Compare(shape.File);
    }
}

/// Damages a file at a few places.
std::string Damaged(std::string file, std::mt19937& random)
{
    constexpr std::string_view pieces = "\"\\\r\n=[];,-@ 0f:x\xC3";
    const auto below = [&](std::size_t count) { return random() % std::max<std::size_t>(count, 1); };
    for (auto changes = 1 + below(3); changes > 0 && !file.empty(); --changes) {
        const std::size_t at = below(file.size());
        switch (below(4)) {
            case 0: file.erase(at, 1 + below(8)); break;
            case 1: file.insert(at, 1, pieces[below(pieces.size())]); break;
            case 2: file.resize(at); break;
            default: file[at] = pieces[below(pieces.size())]; break;
        }
    }
    return file;
}

TEST(StoreParser, ReadsAsTheLibraryDoes)
{
    std::mt19937 random(1);  // NOLINT(cert-msc51-cpp): the same files in each run
    std::vector<std::string> files;
    for (const Shape& shape : Shapes)
        files.push_back(shape.File);
    for (const auto& entry : std::filesystem::directory_iterator(STORES))
        files.push_back(testkit::ReadFile(entry.path()));
    ASSERT_GT(files.size(), std::size(Shapes));
    for (const std::string& file : files) {
        const tool::Store whole = tool::ParseStore(file);
        // The tool converts no code pages.
        const bool hasCodePage = std::any_of(whole.Values.begin(), whole.Values.end(),
                                             [](const tool::StoreValue& value) { return value.Name == "ACP"; });
        if (hasCodePage)
            continue;
        Compare(file);
        for (int i = 0; i < 300; ++i)
            Compare(Damaged(file, random), whole.Values);
        if (HasFatalFailure())
            return;
    }
}

}  // namespace
