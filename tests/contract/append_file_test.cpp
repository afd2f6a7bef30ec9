// Files that several processes append to: what opens, what an append leaves, and the move that takes an old file aside.
#include "system.h"
#include "testkit/file_content.h"
#include "testkit/test_machine.h"
#include "testkit/text.h"

#include <gtest/gtest.h>

using platform::AppendResult;
using platform::FileState;

namespace {

class AppendFile : public testing::Test {
protected:
    HANDLE Open(const std::string& name = "file") const
    {
        return platform::OpenForAppending(platform::Wide(Path(name).c_str()), nullptr);
    }
    static AppendResult Append(HANDLE file, std::string_view text)
    {
        return platform::AppendToFile(file, text.data(), static_cast<DWORD>(text.size()));
    }
    bool Move(const std::string& from, const std::string& to) const
    {
        return platform::MoveFileAside(platform::Wide(Path(from).c_str()), platform::Wide(Path(to).c_str()));
    }

    void Put(const std::string& name, std::string_view content) const
    {
        testkit::WriteFile(Machine.Folder / name, content);
    }
    std::string Content(const std::string& name = "file") const { return testkit::ReadFile(Machine.Folder / name); }
    bool Has(const std::string& name) const { return std::filesystem::exists(Machine.Folder / name); }

    /// A name in the test's folder; one with a drive is a whole path.
    utility::wstring Path(const std::string& name) const
    {
        return testkit::Wide(name.find(':') == 1 ? name : (Machine.Folder / name).string());
    }

    const testkit::TestMachine Machine;
};

TEST_F(AppendFile, EachAppendGoesToTheEndThatTheFileHasThen)
{
    Put("file", "old,");
    const HANDLE one = Open();
    const HANDLE two = Open();
    for (const std::string_view text : {"1,", "2,", "3,"}) {
        EXPECT_EQ(Append(one, text), AppendResult::whole);
        EXPECT_EQ(Append(two, text), AppendResult::whole);
    }
    EXPECT_EQ(Content(), "old,1,1,2,2,3,3,");
    EXPECT_EQ(platform::StateOfFile(one, platform::Wide(Path("file").c_str())), FileState::current);
    EXPECT_TRUE(CloseHandle(one));
    EXPECT_EQ(Append(one, "late"), AppendResult::nothing);
    EXPECT_EQ(GetLastError(), ERROR_INVALID_HANDLE);
    EXPECT_TRUE(CloseHandle(two));
}

TEST_F(AppendFile, ItsEndIsReadWithTheSizeOfTheWhole)
{
    const struct {
        std::string Content;
        std::string End;
    } rows[] = {{"", ""}, {"ab", "ab"}, {"abcd", "abcd"}, {"abcdefg", "defg"}};
    for (const auto& row : rows) {
        Put("file", row.Content);
        const HANDLE file = Open();
        char end[4] = {};
        ULONGLONG size = 99;
        EXPECT_TRUE(platform::ReadEndOfFile(file, end, sizeof end, &size));
        EXPECT_EQ(size, row.Content.size());
        EXPECT_EQ(std::string(end, row.End.size()), row.End);
        CloseHandle(file);
    }
}

TEST_F(AppendFile, WhatCannotBeOpenedHasItsCode)
{
    std::filesystem::create_directory(Machine.Folder / "folder");
    const struct {
        std::string Name;
        DWORD Error;
    } rows[] = {{"folder", ERROR_ACCESS_DENIED},
                {"missing/file", ERROR_PATH_NOT_FOUND},
                {"Q:\\folder\\file", ERROR_PATH_NOT_FOUND}};
    for (const auto& row : rows) {
        EXPECT_EQ(Open(row.Name), nullptr) << row.Name;
        EXPECT_EQ(GetLastError(), row.Error) << row.Name;
    }
    const unsigned short nothing[] = {0};
    EXPECT_EQ(platform::OpenForAppending(platform::Wide(nothing), nullptr), nullptr);
    EXPECT_EQ(GetLastError(), DWORD{ERROR_PATH_NOT_FOUND});
}

TEST_F(AppendFile, AMoveReplacesTheEarlierFileOrChangesNothing)
{
    Put("file", "new");
    Put("earlier", "old");
    const HANDLE open = Open();
    EXPECT_FALSE(Move("file", "earlier"));
    EXPECT_EQ(GetLastError(), ERROR_SHARING_VIOLATION) << "it is open";
    CloseHandle(open);
    EXPECT_FALSE(Move("file", "missing/earlier"));
    EXPECT_EQ(Content(), "new");
    EXPECT_EQ(Content("earlier"), "old");
    EXPECT_TRUE(Move("file", "earlier"));
    EXPECT_FALSE(Has("file"));
    EXPECT_EQ(Content("earlier"), "new");

    EXPECT_FALSE(Move("file", "earlier")) << "there is no file";
    Put("file", "");
    EXPECT_FALSE(Move("file", "earlier")) << "it is empty";
    EXPECT_EQ(Content("earlier"), "new");
    std::filesystem::create_directory(Machine.Folder / "folder");
    EXPECT_FALSE(Move("folder", "earlier"));
    Put("file", "newer");
    EXPECT_FALSE(Move("file", "folder"));
    EXPECT_EQ(Content(), "newer");
}

}  // namespace
