// Files on Linux: appending, modes, and calls that the contract leaves open.
#include "system.h"
#include "testkit/file_content.h"
#include "testkit/test_machine.h"
#include "testkit/text.h"

#include <gtest/gtest.h>

#include <sys/stat.h>

using testkit::Wide;

namespace {

constexpr DWORD ReadWrite = GENERIC_READ | GENERIC_WRITE;

class FilesOnLinux : public testing::Test {
protected:
    HANDLE Open(DWORD disposition, const std::string& name = "file", SECURITY_ATTRIBUTES* attributes = nullptr,
                DWORD access = ReadWrite) const
    {
        return CreateFileW(Path(name).c_str(), access, FILE_SHARE_READ | FILE_SHARE_WRITE, attributes, disposition,
                           FILE_ATTRIBUTE_NORMAL, nullptr);
    }

    static bool Write(HANDLE file, std::string_view text)
    {
        DWORD written = 0;
        return WriteFile(file, text.data(), static_cast<DWORD>(text.size()), &written, nullptr) &&
               written == text.size();
    }

    utility::wstring Path(const std::string& name) const { return Wide((Machine.Folder / name).string()); }
    std::string Content(const std::string& name = "file") const { return testkit::ReadFile(Machine.Folder / name); }

    const testkit::TestMachine Machine;
};

TEST_F(FilesOnLinux, WriteAfterASeekToTheEndAppendsAtThePresentEnd)
{
    const HANDLE one = Open(OPEN_ALWAYS);
    const HANDLE two = Open(OPEN_ALWAYS);
    for (const HANDLE file : {one, two})
        EXPECT_EQ(SetFilePointer(file, 0, nullptr, FILE_END), 0U);
    EXPECT_TRUE(Write(one, "first,"));
    EXPECT_TRUE(Write(two, "second"));
    EXPECT_EQ(Content(), "first,second");
    CloseHandle(one);
    CloseHandle(two);
}

TEST_F(FilesOnLinux, OperationsWithoutTheirAccessAreRefused)
{
    testkit::WriteFile(Machine.Folder / "file", "old");
    const HANDLE reader = Open(OPEN_EXISTING, "file", nullptr, GENERIC_READ);
    EXPECT_FALSE(SetEndOfFile(reader));
    EXPECT_EQ(GetLastError(), ERROR_ACCESS_DENIED);
    EXPECT_EQ(Open(TRUNCATE_EXISTING, "file", nullptr, GENERIC_READ), INVALID_HANDLE_VALUE);
    EXPECT_EQ(GetLastError(), ERROR_INVALID_PARAMETER);
    EXPECT_EQ(Content(), "old");

    LONG high = 1;
    EXPECT_EQ(SetFilePointer(reader, 5, &high, FILE_BEGIN), 5U);
    EXPECT_EQ(SetFilePointer(reader, 1, nullptr, FILE_CURRENT), INVALID_SET_FILE_POINTER);
    EXPECT_EQ(GetLastError(), ERROR_INVALID_PARAMETER) << "a position that needs a high half";
    high = 0;
    EXPECT_EQ(SetFilePointer(reader, 0, &high, FILE_CURRENT), 5U) << "a failed seek does not move";
    EXPECT_EQ(high, 1);
    CloseHandle(reader);
}

TEST_F(FilesOnLinux, HandlesOfAnotherKindAreRefused)
{
    const HANDLE file = Open(OPEN_ALWAYS);
    WIN32_FIND_DATAW found;
    const HANDLE search = FindFirstFileW(Path("file").c_str(), &found);
    EXPECT_FALSE(FindClose(file));
    EXPECT_EQ(GetLastError(), ERROR_INVALID_HANDLE);
    EXPECT_EQ(SetFilePointer(search, 0, nullptr, FILE_END), INVALID_SET_FILE_POINTER);
    EXPECT_EQ(WaitForSingleObject(file, 0), WAIT_FAILED);
    EXPECT_TRUE(FindClose(search));
    EXPECT_FALSE(FindClose(search));
    EXPECT_TRUE(CloseHandle(file));
}

/// Security attributes with an access list for everyone.
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
        for (const Entry& entry : entries)
            EXPECT_TRUE(
                (entry.Allow ? AddAccessAllowedAce : AddAccessDeniedAce)(List(), ACL_REVISION, entry.Mask, everyone));
        InitializeSecurityDescriptor(&Descriptor, SECURITY_DESCRIPTOR_REVISION);
        SetSecurityDescriptorDacl(&Descriptor, TRUE, List(), FALSE);
    }
    ACL* List() { return reinterpret_cast<ACL*>(Storage); }
    SECURITY_ATTRIBUTES* get() { return &Record; }

private:
    alignas(8) BYTE Storage[100]{};
    SECURITY_DESCRIPTOR Descriptor{};
    SECURITY_ATTRIBUTES Record{sizeof Record, &Descriptor, FALSE};
};

TEST_F(FilesOnLinux, ModeFollowsTheAccessListWhateverTheUmask)
{
    umask(0077);
    struct {
        Attributes List;
        mode_t Mode;
    } cases[] = {
        {Attributes({{false, WRITE_DAC | WRITE_OWNER}, {true, GENERIC_ALL}}), 0666},
        {Attributes({{true, GENERIC_READ}}), 0444},
        {Attributes({{false, GENERIC_WRITE}, {true, GENERIC_ALL}}), 0444},
        {Attributes({{true, GENERIC_ALL}, {false, GENERIC_WRITE}}), 0666},
        {Attributes({}), 0},
        {Attributes({{true, GENERIC_ALL}}), 0},  // gets a wrong count below, so it allows nothing
    };
    std::end(cases)[-1].List.List()->AceCount = 500;
    struct stat status {};
    for (auto& access : cases) {
        CloseHandle(Open(CREATE_NEW, "file", access.List.get()));
        ASSERT_EQ(stat((Machine.Folder / "file").c_str(), &status), 0);
        EXPECT_EQ(status.st_mode & 0777, access.Mode);
        std::filesystem::remove(Machine.Folder / "file");
    }
    CloseHandle(Open(CREATE_NEW));
    ASSERT_EQ(stat((Machine.Folder / "file").c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 0777, 0600U) << "without attributes the umask decides";
}

}  // namespace
