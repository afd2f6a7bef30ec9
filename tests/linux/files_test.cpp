#include "child.h"
#include "support.h"
#include "system.h"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/stat.h>

using support::Wide;

namespace {

constexpr DWORD ReadWrite = GENERIC_READ | GENERIC_WRITE;

class Files : public testing::Test {
protected:
    HANDLE Open(DWORD disposition, const std::string& name = "file", SECURITY_ATTRIBUTES* attributes = nullptr) const
    {
        return CreateFileW(Path(name).c_str(), ReadWrite, FILE_SHARE_READ | FILE_SHARE_WRITE, attributes, disposition,
                           FILE_ATTRIBUTE_NORMAL, nullptr);
    }

    static bool Write(HANDLE file, std::string_view text)
    {
        DWORD written = 0;
        return WriteFile(file, text.data(), static_cast<DWORD>(text.size()), &written, nullptr) &&
               written == text.size();
    }

    utility::wstring Path(const std::string& name) const { return Wide(Machine.Folder / name); }
    std::string Content(const std::string& name = "file") const { return support::ReadFile(Machine.Folder / name); }

    const support::Machine Machine;
};

TEST_F(Files, DispositionsDecideWhatIsOpened)
{
    struct Case {
        DWORD Disposition;
        bool Exists;
        DWORD Error;
        bool Opens;
        std::string Content;
    };
    const Case cases[] = {
        {CREATE_NEW, false, ERROR_SUCCESS, true, ""},
        {CREATE_NEW, true, ERROR_FILE_EXISTS, false, "old"},
        {CREATE_ALWAYS, true, ERROR_ALREADY_EXISTS, true, ""},
        {OPEN_EXISTING, true, ERROR_SUCCESS, true, "old"},
        {OPEN_EXISTING, false, ERROR_FILE_NOT_FOUND, false, ""},
        {OPEN_ALWAYS, false, ERROR_SUCCESS, true, ""},
        {OPEN_ALWAYS, true, ERROR_ALREADY_EXISTS, true, "old"},
        {TRUNCATE_EXISTING, true, ERROR_SUCCESS, true, ""},
        {TRUNCATE_EXISTING, false, ERROR_FILE_NOT_FOUND, false, ""},
        {0, true, ERROR_INVALID_PARAMETER, false, "old"},
    };
    for (const Case& opening : cases) {
        std::filesystem::remove(Machine.Folder / "file");
        if (opening.Exists)
            support::WriteFile(Machine.Folder / "file", "old");
        const HANDLE file = Open(opening.Disposition);
        EXPECT_EQ(GetLastError(), opening.Error) << opening.Disposition << opening.Exists;
        EXPECT_EQ(file != INVALID_HANDLE_VALUE, opening.Opens);
        EXPECT_EQ(Content(), opening.Content);
        EXPECT_EQ(CloseHandle(file) != FALSE, opening.Opens);
    }
}

TEST_F(Files, WriteBehindASeekToTheEndAppendsWhereverTheEndIs)
{
    const HANDLE one = Open(OPEN_ALWAYS);
    const HANDLE two = Open(OPEN_ALWAYS);
    for (const HANDLE file : {one, two})
        EXPECT_EQ(SetFilePointer(file, 0, nullptr, FILE_END), 0U);
    EXPECT_TRUE(Write(one, "first,"));
    EXPECT_TRUE(Write(two, "second"));
    EXPECT_EQ(Content(), "first,second");
    EXPECT_EQ(SetFilePointer(one, 0, nullptr, FILE_BEGIN), 0U);
    EXPECT_TRUE(Write(one, "F"));
    EXPECT_EQ(SetFilePointer(one, -1, nullptr, FILE_END), 11U);
    EXPECT_TRUE(Write(one, "D"));
    EXPECT_EQ(Content(), "First,seconD");
    CloseHandle(one);
    CloseHandle(two);
}

TEST_F(Files, PositionsBeyondFourGigabytesNeedTheHighHalf)
{
    const HANDLE file = Open(OPEN_ALWAYS);
    LONG high = 1;
    EXPECT_EQ(SetFilePointer(file, 5, &high, FILE_BEGIN), 5U);
    EXPECT_EQ(high, 1);
    EXPECT_TRUE(Write(file, "x"));
    high = 0;
    EXPECT_EQ(SetFilePointer(file, 0, &high, FILE_END), 6U);
    EXPECT_EQ(high, 1);
    EXPECT_EQ(SetFilePointer(file, 0, nullptr, FILE_END), INVALID_SET_FILE_POINTER);
    EXPECT_EQ(GetLastError(), ERROR_INVALID_PARAMETER);
    EXPECT_EQ(SetFilePointer(file, 0, nullptr, 3), INVALID_SET_FILE_POINTER);
    EXPECT_EQ(SetFilePointer(file, -1, nullptr, FILE_BEGIN), INVALID_SET_FILE_POINTER);
    CloseHandle(file);
    EXPECT_EQ(SetFilePointer(file, 0, &high, FILE_END), INVALID_SET_FILE_POINTER);
    EXPECT_EQ(GetLastError(), ERROR_INVALID_HANDLE);
    EXPECT_FALSE(Write(file, "x"));
    EXPECT_EQ(GetLastError(), ERROR_INVALID_HANDLE);
}

TEST_F(Files, OpenFileIsNeitherMovedNorDeleted)
{
    const HANDLE file = Open(OPEN_ALWAYS);
    const auto elsewhere = [this] {
        support::Child child([this] {
            const bool kept = !DeleteFileW(Path("file").c_str()) && GetLastError() == ERROR_SHARING_VIOLATION &&
                              !MoveFileW(Path("file").c_str(), Path("moved").c_str()) &&
                              GetLastError() == ERROR_SHARING_VIOLATION;
            return kept ? 0 : 1;
        });
        return child.Wait();
    };
    EXPECT_EQ(elsewhere(), 0);
    CloseHandle(file);
    support::WriteFile(Machine.Folder / "taken", "");
    EXPECT_FALSE(MoveFileW(Path("file").c_str(), Path("taken").c_str()));
    EXPECT_EQ(GetLastError(), ERROR_ALREADY_EXISTS);
    EXPECT_TRUE(MoveFileW(Path("file").c_str(), Path("moved").c_str()));
    EXPECT_TRUE(DeleteFileW(Path("moved").c_str()));
    EXPECT_FALSE(DeleteFileW(Path("moved").c_str()));
    EXPECT_EQ(GetLastError(), ERROR_FILE_NOT_FOUND);
    EXPECT_FALSE(DeleteFileW(Machine.Folder.path().string().empty() ? nullptr : Path(".").c_str()));
    EXPECT_EQ(GetLastError(), ERROR_ACCESS_DENIED);
}

TEST_F(Files, SearchTellsFilesFromFoldersAndClosesOnce)
{
    support::WriteFile(Machine.Folder / "file", "12345");
    WIN32_FIND_DATAW found;
    HANDLE search = FindFirstFileW(Path("file").c_str(), &found);
    ASSERT_NE(search, INVALID_HANDLE_VALUE);
    EXPECT_EQ(found.nFileSizeLow, 5U);
    EXPECT_EQ(found.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY, 0U);
    EXPECT_EQ(support::Narrow(found.cFileName), "file");
    EXPECT_FALSE(CloseHandle(search)) << "a search is closed by its own call";
    EXPECT_TRUE(FindClose(search));
    EXPECT_FALSE(FindClose(search));
    search = FindFirstFileW(Wide(Machine.Folder.path().string()).c_str(), &found);
    EXPECT_NE(found.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY, 0U);
    FindClose(search);
    EXPECT_EQ(FindFirstFileW(Path("none").c_str(), &found), INVALID_HANDLE_VALUE);
    EXPECT_EQ(GetLastError(), ERROR_FILE_NOT_FOUND);
    EXPECT_EQ(FindFirstFileW(Path("no/ne").c_str(), &found), INVALID_HANDLE_VALUE);
    EXPECT_EQ(GetLastError(), ERROR_PATH_NOT_FOUND);
}

/// Attributes with an access list of entries for everyone.
class Attributes {
public:
    struct Entry {
        bool Allow;
        DWORD Mask;
    };

    explicit Attributes(std::initializer_list<Entry> entries)
    {
        BYTE everyone[] = {1, 1, 0, 0, 0, 0, 0, 1, 0, 0, 0, 0};
        InitializeAcl(List(), sizeof Storage, ACL_REVISION);
        for (const Entry& entry : entries) {
            if (entry.Allow) {
                EXPECT_TRUE(AddAccessAllowedAce(List(), ACL_REVISION, entry.Mask, everyone));
            } else {
                EXPECT_TRUE(AddAccessDeniedAce(List(), ACL_REVISION, entry.Mask, everyone));
            }
        }
        InitializeSecurityDescriptor(&Descriptor, SECURITY_DESCRIPTOR_REVISION);
        SetSecurityDescriptorDacl(&Descriptor, TRUE, List(), FALSE);
    }
    ACL* List() { return reinterpret_cast<ACL*>(Storage); }
    SECURITY_ATTRIBUTES* get() { return &Record; }

    SECURITY_DESCRIPTOR Descriptor{};

private:
    alignas(8) BYTE Storage[100]{};
    SECURITY_ATTRIBUTES Record{sizeof Record, &Descriptor, FALSE};
};

TEST_F(Files, ModeFollowsTheAccessListWhateverTheUmask)
{
    umask(0077);
    struct Case {
        Attributes List;
        mode_t Mode;
    };
    Case cases[] = {
        {Attributes({{false, WRITE_DAC | WRITE_OWNER}, {true, GENERIC_ALL}}), 0666},
        {Attributes({{true, GENERIC_READ}}), 0444},
        {Attributes({{false, GENERIC_WRITE}, {true, GENERIC_ALL}}), 0444},
        {Attributes({{true, GENERIC_ALL}, {false, GENERIC_WRITE}}), 0666},
        {Attributes({}), 0},
    };
    struct stat status {};
    for (Case& access : cases) {
        CloseHandle(Open(CREATE_NEW, "file", access.List.get()));
        ASSERT_EQ(stat((Machine.Folder / "file").c_str(), &status), 0);
        EXPECT_EQ(status.st_mode & 0777, access.Mode);
        std::filesystem::remove(Machine.Folder / "file");
    }
    CloseHandle(Open(CREATE_NEW));
    ASSERT_EQ(stat((Machine.Folder / "file").c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 0777, 0600U) << "without attributes the umask decides";

    // A list that lies about its entries gives nobody anything.
    Attributes broken({{true, GENERIC_ALL}});
    broken.List()->AceCount = 500;
    CloseHandle(Open(CREATE_NEW, "broken", broken.get()));
    ASSERT_EQ(stat((Machine.Folder / "broken").c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 0777, 0U);
}

TEST(Security, RecordsRefuseWhatDoesNotFit)
{
    BYTE everyone[] = {1, 1, 0, 0, 0, 0, 0, 1, 0, 0, 0, 0};
    alignas(8) BYTE room[48];
    auto* const list = reinterpret_cast<ACL*>(room);
    EXPECT_FALSE(InitializeAcl(list, 7, ACL_REVISION));
    EXPECT_EQ(GetLastError(), ERROR_INSUFFICIENT_BUFFER);
    EXPECT_FALSE(InitializeAcl(list, sizeof room, 9));
    EXPECT_EQ(GetLastError(), ERROR_INVALID_PARAMETER);
    ASSERT_TRUE(InitializeAcl(list, sizeof room, ACL_REVISION));
    EXPECT_TRUE(AddAccessAllowedAce(list, ACL_REVISION, 1, everyone));
    EXPECT_TRUE(AddAccessAllowedAce(list, ACL_REVISION, 1, everyone));
    EXPECT_FALSE(AddAccessAllowedAce(list, ACL_REVISION, 1, everyone));
    EXPECT_EQ(GetLastError(), ERROR_ALLOTTED_SPACE_EXCEEDED);
    EXPECT_EQ(list->AceCount, 2);
    SID_IDENTIFIER_AUTHORITY authority{{0, 0, 0, 0, 0, 5}};
    PSID sid = nullptr;
    EXPECT_FALSE(AllocateAndInitializeSid(&authority, 9, 1, 2, 3, 4, 5, 6, 7, 8, &sid));
    ASSERT_TRUE(AllocateAndInitializeSid(&authority, 8, 1, 2, 3, 4, 5, 6, 7, 8, &sid));
    EXPECT_EQ(GetLengthSid(sid), 40U);
    EXPECT_EQ(static_cast<SID*>(sid)->SubAuthority[7], 8U);
    FreeSid(sid);
}

}  // namespace
