// Files that several processes append to, on Linux: mode bits, links and devices, and descriptors that a program
// closes.
#include "system.h"
#include "testkit/file_content.h"
#include "testkit/linux/child.h"
#include "testkit/test_machine.h"
#include "testkit/text.h"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <linux/fs.h>
#include <sys/ioctl.h>
#include <sys/resource.h>
#include <sys/stat.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <functional>
#include <thread>
#include <vector>

using platform::AppendResult;
using platform::FileState;
using testkit::Child;

// The linker redirects the library's calls of ftruncate to the wrappers (--wrap); off_t has 64 bits in both.
extern "C" {
int __real_ftruncate(int file, off_t size);
int __wrap_ftruncate(int file, off_t size);
int __real_ftruncate64(int file, off_t size);
int __wrap_ftruncate64(int file, off_t size);
}

namespace {

/// What happens before a file is cut. @return whether the cut may succeed
std::function<bool()> beforeCut;

bool MayCut()
{
    if (!beforeCut || beforeCut())
        return true;
    errno = EIO;
    return false;
}

}  // namespace

int __wrap_ftruncate(int file, off_t size)
{
    return MayCut() ? __real_ftruncate(file, size) : -1;
}

int __wrap_ftruncate64(int file, off_t size)
{
    return MayCut() ? __real_ftruncate64(file, size) : -1;
}

namespace {

/// The file size limit of this process, which makes an append fail after a part.
void LimitFiles(rlim_t bytes)
{
    rlimit limit{};
    getrlimit(RLIMIT_FSIZE, &limit);
    limit.rlim_cur = std::min(bytes, limit.rlim_max);
    ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &limit), 0);
}

class AppendFileOnLinux : public testing::Test {
protected:
    HANDLE Open(const std::string& name = "file", SECURITY_ATTRIBUTES* attributes = nullptr) const
    {
        return platform::OpenForAppending(Path(name).c_str(), attributes);
    }
    static AppendResult Append(HANDLE file, std::string_view text)
    {
        return platform::AppendToFile(file, text.data(), static_cast<DWORD>(text.size()));
    }
    FileState State(HANDLE file) const { return platform::StateOfFile(file, Path("file").c_str()); }

    std::string Name(const std::string& name = "file") const { return Machine.Folder / name; }
    utility::wstring Path(const std::string& name) const { return testkit::Wide(Name(name)); }
    std::string Content(const std::string& name = "file") const { return testkit::ReadFile(Machine.Folder / name); }
    mode_t Mode(const std::string& name = "file") const
    {
        struct stat status {};
        EXPECT_EQ(stat(Name(name).c_str(), &status), 0);
        return status.st_mode & 0777;
    }

    const testkit::TestMachine Machine;
};

TEST_F(AppendFileOnLinux, NothingButARegularFileWithOneLinkIsALog)
{
    testkit::WriteFile(Name("target"), "target");
    std::filesystem::create_symlink(Name("target"), Name("link"));
    std::filesystem::create_symlink(Name("nowhere"), Name("dangling"));
    std::filesystem::create_hard_link(Name("target"), Name("second name"));
    ASSERT_EQ(mkfifo(Name("pipe").c_str(), 0600), 0);
    const struct {
        const char* Name;
        DWORD Error;
    } rows[] = {{"link", ERROR_CANT_RESOLVE_FILENAME},
                {"dangling", ERROR_CANT_RESOLVE_FILENAME},
                {"second name", ERROR_TOO_MANY_LINKS},
                {"pipe", ERROR_ACCESS_DENIED}};
    for (const auto& row : rows) {
        EXPECT_EQ(Open(row.Name), nullptr) << row.Name;
        EXPECT_EQ(GetLastError(), row.Error) << row.Name;
        EXPECT_FALSE(platform::MoveFileAside(Path(row.Name).c_str(), Path("moved").c_str())) << row.Name;
        EXPECT_TRUE(std::filesystem::symlink_status(Name(row.Name)).type() != std::filesystem::file_type::not_found);
    }
    EXPECT_EQ(platform::OpenForAppending(testkit::Wide("/dev/null").c_str(), nullptr), nullptr);
    EXPECT_EQ(Content("target"), "target");
    EXPECT_FALSE(std::filesystem::exists(Name("nowhere")));
}

TEST_F(AppendFileOnLinux, TheAccessListDecidesTheModeWhateverTheUmask)
{
    umask(0077);
    BYTE everyone[] = {1, 1, 0, 0, 0, 0, 0, 1, 0, 0, 0, 0};
    const struct {
        std::vector<std::pair<bool, DWORD>> Entries;  // allowed or denied, and the rights
        mode_t Mode;
    } rows[] = {{{{false, WRITE_DAC | WRITE_OWNER}, {true, GENERIC_ALL}}, 0666},
                {{{true, GENERIC_ALL}, {false, GENERIC_WRITE}}, 0666},
                {{{true, GENERIC_READ | GENERIC_WRITE}}, 0666}};
    int count = 0;
    for (const auto& row : rows) {
        alignas(8) BYTE storage[100]{};
        auto* const list = reinterpret_cast<ACL*>(storage);
        InitializeAcl(list, sizeof storage, ACL_REVISION);
        for (const auto& [allowed, rights] : row.Entries) {
            EXPECT_TRUE(allowed ? AddAccessAllowedAce(list, ACL_REVISION, rights, everyone)
                                : AddAccessDeniedAce(list, ACL_REVISION, rights, everyone));
        }
        SECURITY_DESCRIPTOR descriptor{};
        InitializeSecurityDescriptor(&descriptor, SECURITY_DESCRIPTOR_REVISION);
        SetSecurityDescriptorDacl(&descriptor, TRUE, list, FALSE);
        SECURITY_ATTRIBUTES attributes{sizeof attributes, &descriptor, FALSE};
        const std::string name = "file" + std::to_string(count++);
        CloseHandle(Open(name, &attributes));
        EXPECT_EQ(Mode(name), row.Mode) << name;
    }
    CloseHandle(Open());
    EXPECT_EQ(Mode(), 0600U) << "without attributes the umask decides";
}

TEST_F(AppendFileOnLinux, AMovedOrRemovedFileIsNoticed)
{
    const HANDLE file = Open();
    EXPECT_EQ(State(file), FileState::current);
    std::filesystem::rename(Name(), Name("moved"));
    EXPECT_EQ(State(file), FileState::moved) << "there is no file any more";
    testkit::WriteFile(Name(), "another");
    EXPECT_EQ(State(file), FileState::moved) << "there is another file";
    CloseHandle(file);
}

TEST_F(AppendFileOnLinux, AnOpenFileIsNotMovedByAUserWithAnotherMutex)
{
    std::atomic<int> moved{0};
    std::vector<std::thread> users;
    for (int i = 0; i < 4; ++i) {
        users.emplace_back([&] {
            for (int round = 0; round < 500; ++round) {
                platform::MoveFileAside(Path("file").c_str(), Path("old").c_str());
                const HANDLE file = Open();
                Append(file, "content");
                moved += State(file) != FileState::current;
                CloseHandle(file);
            }
        });
    }
    for (std::thread& user : users)
        user.join();
    EXPECT_EQ(moved, 0);
}

TEST_F(AppendFileOnLinux, ADescriptorOfTheProgramIsNotTakenForTheLog)
{
    Child program([&] {
        for (const int standard : {0, 1, 2})
            close(standard);
        const HANDLE file = Open();
        for (const int standard : {0, 1, 2}) {
            if (write(standard, "printed", 7) >= 0)
                return 1;
        }
        // A program that closes all descriptors and then opens its own files gets the number of the log.
        close_range(0, ~0U, 0);
        std::vector<int> own = {open(Name("own").c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600)};
        for (int i = 0; i < 64; ++i)
            own.push_back(fcntl(own[0], F_DUPFD_CLOEXEC, 512));
        if (State(file) != FileState::lost)
            return 2;
        CloseHandle(file);
        for (const int descriptor : own) {
            if (fcntl(descriptor, F_GETFD) < 0)
                return 3;
        }
        return 0;
    });
    EXPECT_EQ(program.Wait(), 0);
    EXPECT_EQ(Content(), "");
}

TEST_F(AppendFileOnLinux, AFailedAppendLeavesNothingAndRemovesNothingOfOthers)
{
    const HANDLE file = Open();
    EXPECT_EQ(Append(file, "0123456789"), AppendResult::whole);
    LimitFiles(16);
    EXPECT_EQ(Append(file, "abcdefghij"), AppendResult::nothing);
    EXPECT_EQ(GetLastError(), ERROR_DISK_FULL);
    EXPECT_EQ(Content(), "0123456789");

    // Another writer, with another mutex, arrives at the worst moment.
    HANDLE other = nullptr;
    std::string acknowledged;
    beforeCut = [&] {
        other = Open();
        EXPECT_EQ(GetLastError(), ERROR_TIMEOUT);
        LimitFiles(RLIM_INFINITY);
        if (other != nullptr && Append(other, "<other>") == AppendResult::whole)
            acknowledged = "<other>";
        return true;
    };
    EXPECT_EQ(Append(file, "abcdefghij"), AppendResult::nothing);
    beforeCut = nullptr;
    EXPECT_NE(Content().find(acknowledged), std::string::npos);
    if (other == nullptr)
        other = Open();
    EXPECT_EQ(Append(other, "<after>"), AppendResult::whole);
    EXPECT_EQ(Content(), "0123456789<after>");
    CloseHandle(other);
    CloseHandle(file);
}

TEST_F(AppendFileOnLinux, APartStaysIfAnotherProcessCouldAppendOrItCannotBeRemoved)
{
    enum class Reason { anotherOpener, fork, failure };
    for (const Reason reason : {Reason::anotherOpener, Reason::fork, Reason::failure}) {
        const HANDLE file = Open();
        const HANDLE other = reason == Reason::anotherOpener ? Open() : nullptr;
        if (reason == Reason::fork)
            Child([] {}).Wait();
        beforeCut = [reason] { return reason != Reason::failure; };
        EXPECT_EQ(Append(file, "0123456789"), AppendResult::whole);
        LimitFiles(16);
        EXPECT_EQ(Append(file, "abcdefghij"), AppendResult::part);
        EXPECT_EQ(GetLastError(), ERROR_DISK_FULL);
        LimitFiles(RLIM_INFINITY);
        beforeCut = nullptr;
        EXPECT_EQ(Append(file, "klm"), AppendResult::whole);
        EXPECT_EQ(Content(), "0123456789abcdefklm") << static_cast<int>(reason);
        EXPECT_FALSE(platform::MoveFileAside(Path("file").c_str(), Path("moved").c_str())) << "it is still open";
        CloseHandle(file);
        CloseHandle(other);
        std::filesystem::remove(Name());
    }
}

TEST_F(AppendFileOnLinux, AnAppendOnlyFileIsALog)
{
    testkit::WriteFile(Name(), "old,");
    const int flagged = open(Name().c_str(), O_RDONLY | O_CLOEXEC);
    int before = 0;
    int flags = ioctl(flagged, FS_IOC_GETFLAGS, &before) == 0 ? before | FS_APPEND_FL : 0;
    if (flags == 0 || ioctl(flagged, FS_IOC_SETFLAGS, &flags) != 0) {
        close(flagged);
        GTEST_SKIP() << "this account or this file system has no append-only files";
    }
    const HANDLE file = Open();
    EXPECT_EQ(Append(file, "new"), AppendResult::whole);
    CloseHandle(file);
    EXPECT_FALSE(platform::MoveFileAside(Path("file").c_str(), Path("moved").c_str()));
    EXPECT_EQ(ioctl(flagged, FS_IOC_SETFLAGS, &before), 0);
    close(flagged);
    EXPECT_EQ(Content(), "old,new");
}

}  // namespace
