// Contract of files: opening, positions, search, moving and deleting.
#include "system.h"
#include "testkit/file_content.h"
#include "testkit/test_machine.h"
#include "testkit/test_process.h"
#include "testkit/text.h"

#include <gtest/gtest.h>

#include <chrono>
#include <optional>

using platform::Wide;

namespace {

constexpr DWORD ReadWrite = GENERIC_READ | GENERIC_WRITE;
constexpr DWORD ShareAll = FILE_SHARE_READ | FILE_SHARE_WRITE;

class FileMachine : public testkit::TestMachine {
public:
    HANDLE Open(DWORD disposition, const std::string& name = "file", DWORD access = ReadWrite) const
    {
        return CreateFileW(Wide(Path(name).c_str()), access, ShareAll, nullptr, disposition, FILE_ATTRIBUTE_NORMAL,
                           nullptr);
    }
    bool Delete(const std::string& name) const { return DeleteFileW(Wide(Path(name).c_str())) != FALSE; }
    bool Move(const std::string& from, const std::string& to) const
    {
        return MoveFileW(Wide(Path(from).c_str()), Wide(Path(to).c_str())) != FALSE;
    }
    HANDLE Find(const std::string& name, WIN32_FIND_DATAW& found) const
    {
        return FindFirstFileW(Wide(Path(name).c_str()), &found);
    }

    void Put(const std::string& name, std::string_view content) const { testkit::WriteFile(Folder / name, content); }
    /// Empty if there is no file.
    std::string Content(const std::string& name = "file") const
    {
        return Has(name) ? testkit::ReadFile(Folder / name) : std::string();
    }
    bool Has(const std::string& name) const { return std::filesystem::exists(Folder / name); }

    /// A name in the test's folder. A name with a drive is used as it is.
    utility::wstring Path(const std::string& name) const
    {
        return testkit::Wide(name.find(':') != std::string::npos ? name : (Folder / name).string());
    }
};

class Files : public testing::Test {
protected:
    struct Refusal {
        const char* Name;
        DWORD Error;
    };

    static bool Write(HANDLE file, std::string_view text)
    {
        DWORD written = 99;
        const BOOL done = WriteFile(file, text.data(), static_cast<DWORD>(text.size()), &written, nullptr);
        EXPECT_EQ(written, done ? text.size() : 0U);
        return done != FALSE;
    }
    static std::optional<std::string> Read(HANDLE file, DWORD bytes)
    {
        std::string text(bytes, '?');
        DWORD got = 99;
        if (!ReadFile(file, text.data(), bytes, &got, nullptr))
            return std::nullopt;
        text.resize(got);
        return text;
    }
    /// The error of a call that must fail.
    static DWORD Refused(bool done)
    {
        const DWORD error = GetLastError();
        EXPECT_FALSE(done);
        return error;
    }
    static DWORD Refused(HANDLE handle) { return Refused(handle != INVALID_HANDLE_VALUE); }

    const FileMachine Machine{};
};

TEST_F(Files, EachDispositionOpensOrMakesItsFile)
{
    const struct {
        DWORD Disposition;
        bool Exists;
        std::optional<DWORD> Error;  // if the contract names one
        bool Opens;
        std::string Content;
    } cases[] = {
        {CREATE_NEW, false, {}, true, ""},
        {CREATE_NEW, true, ERROR_FILE_EXISTS, false, "old"},
        {CREATE_ALWAYS, false, ERROR_SUCCESS, true, ""},
        {CREATE_ALWAYS, true, ERROR_ALREADY_EXISTS, true, ""},
        {OPEN_EXISTING, true, {}, true, "old"},
        {OPEN_EXISTING, false, ERROR_FILE_NOT_FOUND, false, ""},
        {OPEN_ALWAYS, false, ERROR_SUCCESS, true, ""},
        {OPEN_ALWAYS, true, ERROR_ALREADY_EXISTS, true, "old"},
        {TRUNCATE_EXISTING, true, {}, true, ""},
        {TRUNCATE_EXISTING, false, ERROR_FILE_NOT_FOUND, false, ""},
        {0, true, ERROR_INVALID_PARAMETER, false, "old"},
        {6, true, ERROR_INVALID_PARAMETER, false, "old"},
    };
    for (const auto& opening : cases) {
        SCOPED_TRACE(std::to_string(opening.Disposition) + (opening.Exists ? " of a file" : " of nothing"));
        std::filesystem::remove(Machine.Folder / "file");
        if (opening.Exists)
            Machine.Put("file", "old");
        SetLastError(99);
        const HANDLE file = Machine.Open(opening.Disposition);
        if (opening.Error) {
            EXPECT_EQ(GetLastError(), *opening.Error);
        }
        ASSERT_EQ(file != INVALID_HANDLE_VALUE, opening.Opens);
        EXPECT_EQ(Machine.Has("file"), opening.Exists || opening.Opens);
        EXPECT_EQ(Machine.Content(), opening.Content);
        if (opening.Opens) {
            EXPECT_TRUE(CloseHandle(file));
        }
    }
}

TEST_F(Files, OpeningReportsWhyThereCanBeNoFile)
{
    std::filesystem::create_directory(Machine.Folder / "folder");
    Machine.Put("plain", "old");
    const struct {
        std::string Name;
        DWORD Disposition;
        DWORD Error;
    } rows[] = {
        {"folder", OPEN_EXISTING, ERROR_ACCESS_DENIED},
        {"folder", OPEN_ALWAYS, ERROR_ACCESS_DENIED},
        {"folder", CREATE_ALWAYS, ERROR_ACCESS_DENIED},
        {"folder", CREATE_NEW, ERROR_FILE_EXISTS},
        {"missing\\file", OPEN_EXISTING, ERROR_PATH_NOT_FOUND},
        {"missing\\file", OPEN_ALWAYS, ERROR_PATH_NOT_FOUND},
        {"missing\\file", CREATE_NEW, ERROR_PATH_NOT_FOUND},
        {"missing/file", CREATE_ALWAYS, ERROR_PATH_NOT_FOUND},
        {"plain\\file", OPEN_EXISTING, ERROR_PATH_NOT_FOUND},
        {"plain\\file", OPEN_ALWAYS, ERROR_PATH_NOT_FOUND},
        {"Q:\\folder\\file", OPEN_EXISTING, ERROR_PATH_NOT_FOUND},
        {"q:/folder/file", OPEN_ALWAYS, ERROR_PATH_NOT_FOUND},
    };
    for (const auto& row : rows)
        EXPECT_EQ(Refused(Machine.Open(row.Disposition, row.Name)), row.Error) << row.Name << ' ' << row.Disposition;
    const unsigned short nothing[] = {0};
    EXPECT_EQ(Refused(CreateFileW(Wide(nothing), ReadWrite, ShareAll, nullptr, OPEN_ALWAYS, 0, nullptr)),
              DWORD{ERROR_PATH_NOT_FOUND});
    EXPECT_EQ(Refused(Machine.Open(OPEN_EXISTING, "folder", GENERIC_READ)), DWORD{ERROR_ACCESS_DENIED});
}

TEST_F(Files, PathsMayHaveBothSeparatorsAndBeRelative)
{
    std::filesystem::create_directory(Machine.Folder / "folder");
    const auto before = std::filesystem::current_path();
    std::filesystem::current_path(Machine.Folder.path());
    for (const char* const name : {"folder\\file", "folder/file", ".\\folder\\..\\folder/file"}) {
        SetLastError(99);
        const HANDLE file = CreateFileW(Wide(testkit::Wide(name).c_str()), ReadWrite, ShareAll, nullptr, OPEN_ALWAYS,
                                        FILE_ATTRIBUTE_NORMAL, nullptr);
        EXPECT_NE(file, INVALID_HANDLE_VALUE) << name;
        EXPECT_TRUE(Machine.Has("folder/file")) << name;
        CloseHandle(file);
        EXPECT_TRUE(Machine.Delete(name)) << name;
    }
    std::filesystem::current_path(before);
}

TEST_F(Files, HandleHasOnlyTheRequestedAccess)
{
    Machine.Put("file", "old");
    const HANDLE reader = Machine.Open(OPEN_EXISTING, "file", GENERIC_READ);
    EXPECT_EQ(Read(reader, 9), "old");
    EXPECT_EQ(Refused(Write(reader, "x")), DWORD{ERROR_ACCESS_DENIED});
    const HANDLE writer = Machine.Open(OPEN_EXISTING, "file", GENERIC_WRITE);
    EXPECT_TRUE(Write(writer, "new"));
    EXPECT_EQ(Refused(Read(writer, 1).has_value()), DWORD{ERROR_ACCESS_DENIED});
    CloseHandle(writer);
    CloseHandle(reader);
    EXPECT_EQ(Machine.Content(), "new");
}

TEST_F(Files, TwoHandlesAppendInTurn)
{
    const HANDLE one = Machine.Open(OPEN_ALWAYS);
    const HANDLE two = Machine.Open(OPEN_ALWAYS);
    std::string whole;
    for (int i = 0; i < 3; ++i) {
        for (const HANDLE file : {one, two}) {
            EXPECT_EQ(SetFilePointer(file, 0, nullptr, FILE_END), whole.size());
            const std::string part = std::to_string(i) + (file == one ? "first," : "second,");
            EXPECT_TRUE(Write(file, part));
            whole += part;
            EXPECT_EQ(SetFilePointer(file, 0, nullptr, FILE_CURRENT), whole.size());
        }
    }
    EXPECT_EQ(Machine.Content(), whole);
    EXPECT_EQ(SetFilePointer(one, 0, nullptr, FILE_BEGIN), 0U);
    EXPECT_EQ(Read(one, 3), whole.substr(0, 3)) << "a handle that has appended reads at its position";
    EXPECT_TRUE(Write(one, "X"));
    whole[3] = 'X';
    EXPECT_EQ(SetFilePointer(one, -1, nullptr, FILE_END), whole.size() - 1);
    EXPECT_TRUE(Write(one, "Y"));
    whole.back() = 'Y';
    EXPECT_EQ(Machine.Content(), whole);
    CloseHandle(one);
    CloseHandle(two);
}

TEST_F(Files, ReadingStopsAtTheEnd)
{
    Machine.Put("file", "12345");
    const HANDLE file = Machine.Open(OPEN_EXISTING);
    for (const char* const part : {"123", "45", "", ""})
        EXPECT_EQ(Read(file, 3), part);
    EXPECT_EQ(SetFilePointer(file, 100, nullptr, FILE_BEGIN), 100U);
    EXPECT_EQ(Read(file, 3), "") << "also after the end";
    EXPECT_EQ(SetFilePointer(file, -2, nullptr, FILE_END), 3U);
    EXPECT_EQ(Read(file, 0), "");
    EXPECT_EQ(Read(file, 9), "45");
    CloseHandle(file);
}

TEST_F(Files, EndMovesToThePosition)
{
    Machine.Put("file", "12345");
    const HANDLE file = Machine.Open(OPEN_EXISTING);
    SetFilePointer(file, 2, nullptr, FILE_BEGIN);
    EXPECT_TRUE(SetEndOfFile(file));
    EXPECT_EQ(Machine.Content(), "12");
    SetFilePointer(file, 4, nullptr, FILE_BEGIN);
    EXPECT_TRUE(SetEndOfFile(file));
    EXPECT_EQ(Machine.Content(), std::string("12\0\0", 4));
    SetFilePointer(file, 5, nullptr, FILE_BEGIN);
    EXPECT_TRUE(Write(file, ""));
    EXPECT_EQ(Machine.Content().size(), 4U) << "a write of no bytes";
    EXPECT_TRUE(Write(file, "x"));
    EXPECT_EQ(Machine.Content(), std::string("12\0\0\0x", 6));
    CloseHandle(file);
}

TEST_F(Files, PositionsBeyondFourGigabytesNeedTheHighHalf)
{
    const HANDLE file = Machine.Open(OPEN_ALWAYS);
    const auto seek = [file](DWORD low, LONG& high, DWORD method) {
        return SetFilePointer(file, static_cast<LONG>(low), &high, method);
    };
    LONG high = 1;
    EXPECT_EQ(seek(5, high, FILE_BEGIN), 5U);
    EXPECT_EQ(high, 1);
    high = 0;
    EXPECT_EQ(seek(0, high, FILE_CURRENT), 5U);
    EXPECT_EQ(high, 1);
    EXPECT_TRUE(SetEndOfFile(file));
    high = -1;
    EXPECT_EQ(seek(static_cast<DWORD>(-2), high, FILE_END), 3U);
    EXPECT_EQ(high, 1);
    EXPECT_EQ(SetFilePointer(file, 7, nullptr, FILE_BEGIN), 7U) << "low positions need no high half";
    // The low half of this position equals the result of a failure.
    high = 0;
    SetLastError(99);
    EXPECT_EQ(seek(0xFFFFFFFF, high, FILE_BEGIN), DWORD{INVALID_SET_FILE_POINTER});
    EXPECT_EQ(GetLastError(), DWORD{NO_ERROR});
    EXPECT_EQ(high, 0);
    CloseHandle(file);
}

TEST_F(Files, SeekBeforeTheStartIsRefused)
{
    const HANDLE file = Machine.Open(OPEN_ALWAYS);
    SetFilePointer(file, 4, nullptr, FILE_BEGIN);
    const auto refused = [file](LONG distance, DWORD method) {
        return Refused(SetFilePointer(file, distance, nullptr, method) != INVALID_SET_FILE_POINTER);
    };
    EXPECT_EQ(refused(-1, FILE_BEGIN), DWORD{ERROR_NEGATIVE_SEEK});
    EXPECT_EQ(refused(-5, FILE_CURRENT), DWORD{ERROR_NEGATIVE_SEEK});
    EXPECT_EQ(refused(-1, FILE_END), DWORD{ERROR_NEGATIVE_SEEK});
    EXPECT_EQ(refused(0, 3), DWORD{ERROR_INVALID_PARAMETER});
    EXPECT_EQ(SetFilePointer(file, 0, nullptr, FILE_CURRENT), 4U);
    CloseHandle(file);
}

TEST_F(Files, ClosedHandleIsRefused)
{
    const HANDLE file = Machine.Open(OPEN_ALWAYS);
    EXPECT_TRUE(CloseHandle(file));
    constexpr DWORD invalid = ERROR_INVALID_HANDLE;
    EXPECT_EQ(Refused(CloseHandle(file) != FALSE), invalid);
    EXPECT_EQ(Refused(CloseHandle(nullptr) != FALSE), invalid);
    EXPECT_EQ(Refused(SetFilePointer(file, 0, nullptr, FILE_END) != INVALID_SET_FILE_POINTER), invalid);
    EXPECT_EQ(Refused(Write(file, "x")), invalid);
    EXPECT_EQ(Refused(Read(file, 1).has_value()), invalid);
    EXPECT_EQ(Refused(SetEndOfFile(file) != FALSE), invalid);
}

TEST_F(Files, OpenFileIsNeitherMovedNorDeleted)
{
    const HANDLE file = Machine.Open(OPEN_ALWAYS);
    const auto keeps = [](const FileMachine& machine) {
        EXPECT_EQ(Refused(machine.Delete("file")), DWORD{ERROR_SHARING_VIOLATION});
        EXPECT_EQ(Refused(machine.Move("file", "moved")), DWORD{ERROR_SHARING_VIOLATION});
        const HANDLE further = machine.Open(OPEN_EXISTING);
        EXPECT_NE(further, INVALID_HANDLE_VALUE) << "it can still be opened";
        CloseHandle(further);
    };
    keeps(Machine);
    testkit::RunAlone(Machine, keeps);
    CloseHandle(file);
    EXPECT_TRUE(Machine.Move("file", "moved"));
    const auto dies = [](const FileMachine& machine) {
        machine.Open(OPEN_EXISTING, "moved");
        testkit::Die();
    };
    EXPECT_NE(testkit::TestProcess(Machine, dies).Wait(), 0);
    EXPECT_TRUE(Machine.Delete("moved")) << "the death of the holder has closed it";
    EXPECT_FALSE(Machine.Has("file") || Machine.Has("moved"));
}

TEST_F(Files, MoveReplacesNothing)
{
    Machine.Put("file", "content");
    Machine.Put("taken", "other");
    std::filesystem::create_directory(Machine.Folder / "folder");
    const struct {
        const char* From;
        const char* To;
        DWORD Error;
    } rows[] = {
        {"file", "taken", ERROR_ALREADY_EXISTS},          {"file", "folder", ERROR_ALREADY_EXISTS},
        {"folder", "taken", ERROR_ALREADY_EXISTS},        {"none", "moved", ERROR_FILE_NOT_FOUND},
        {"missing\\none", "moved", ERROR_PATH_NOT_FOUND}, {"file", "missing\\moved", ERROR_PATH_NOT_FOUND},
        {"taken\\none", "moved", ERROR_PATH_NOT_FOUND},   {"file", "Q:\\folder\\moved", ERROR_PATH_NOT_FOUND},
    };
    for (const auto& row : rows)
        EXPECT_EQ(Refused(Machine.Move(row.From, row.To)), row.Error) << row.From << " to " << row.To;
    EXPECT_EQ(Machine.Content("taken"), "other");
    EXPECT_TRUE(Machine.Move("file", "folder\\moved"));
    EXPECT_TRUE(Machine.Move("folder", "another"));
    EXPECT_EQ(Machine.Content("another/moved"), "content");
    EXPECT_FALSE(Machine.Has("file") || Machine.Has("folder"));
}

TEST_F(Files, DeleteReportsWhatIsMissing)
{
    std::filesystem::create_directory(Machine.Folder / "folder");
    Machine.Put("plain", "");
    const Refusal rows[] = {
        {"none", ERROR_FILE_NOT_FOUND},
        {"missing\\none", ERROR_PATH_NOT_FOUND},
        {"plain\\none", ERROR_PATH_NOT_FOUND},
        {"folder", ERROR_ACCESS_DENIED},
        {"Q:\\folder\\none", ERROR_PATH_NOT_FOUND},
    };
    for (const auto& row : rows)
        EXPECT_EQ(Refused(Machine.Delete(row.Name)), row.Error) << row.Name;
    EXPECT_TRUE(Machine.Has("folder"));
    EXPECT_TRUE(Machine.Delete("plain"));
    EXPECT_EQ(Refused(Machine.Delete("plain")), DWORD{ERROR_FILE_NOT_FOUND});
}

TEST_F(Files, SearchDescribesTheFile)
{
    std::filesystem::create_directory(Machine.Folder / "folder");
    Machine.Put("file", "12345");
    WIN32_FIND_DATAW found;
    HANDLE search = Machine.Find("file", found);
    ASSERT_NE(search, INVALID_HANDLE_VALUE);
    EXPECT_EQ(found.nFileSizeLow, 5U);
    EXPECT_EQ(found.nFileSizeHigh, 0U);
    EXPECT_EQ(found.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY, 0U);
    EXPECT_EQ(std::string(std::begin(found.cFileName), std::begin(found.cFileName) + 5), std::string("file\0", 5));
    EXPECT_EQ(Refused(CloseHandle(search) != FALSE), DWORD{ERROR_INVALID_HANDLE}) << "FindClose closes a search";
    EXPECT_TRUE(FindClose(search));

    // Ticks of 100 ns since the year 1601.
    const auto written = (std::int64_t{found.ftLastWriteTime.dwHighDateTime} << 32) +
                         std::int64_t{found.ftLastWriteTime.dwLowDateTime} - 116'444'736'000'000'000;
    const auto now =
        std::chrono::duration_cast<std::chrono::seconds>(std::chrono::system_clock::now().time_since_epoch());
    EXPECT_LE(std::abs(now.count() - written / 10'000'000), 60);

    search = Machine.Find("folder", found);
    EXPECT_NE(search, INVALID_HANDLE_VALUE);
    EXPECT_NE(found.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY, 0U);
    EXPECT_TRUE(FindClose(search));
    EXPECT_EQ(Refused(FindClose(INVALID_HANDLE_VALUE) != FALSE), DWORD{ERROR_INVALID_HANDLE});

    const Refusal rows[] = {
        {"none", ERROR_FILE_NOT_FOUND},     {"folder\\none", ERROR_FILE_NOT_FOUND},
        {"folder\\", ERROR_FILE_NOT_FOUND}, {"missing\\none", ERROR_PATH_NOT_FOUND},
        {"Q:\\none", ERROR_PATH_NOT_FOUND},
    };
    for (const auto& row : rows)
        EXPECT_EQ(Refused(Machine.Find(row.Name, found)), row.Error) << row.Name;
}

TEST_F(Files, NamesKeepAllCharacters)
{
    const unsigned short letters[] = {0xE4, 0x4E2D, 0xD834, 0xDD1E, 0};
    const utility::wstring path = Machine.Path("x") + letters;
    const HANDLE file = CreateFileW(Wide(path.c_str()), ReadWrite, ShareAll, nullptr, CREATE_NEW, 0, nullptr);
    ASSERT_NE(file, INVALID_HANDLE_VALUE);
    CloseHandle(file);
    EXPECT_TRUE(std::filesystem::exists(Machine.Folder.path() / u8"x\u00e4\u4e2d\U0001D11E"));
    WIN32_FIND_DATAW found;
    const HANDLE search = FindFirstFileW(Wide(path.c_str()), &found);
    ASSERT_NE(search, INVALID_HANDLE_VALUE);
    EXPECT_TRUE(std::equal(std::begin(letters), std::end(letters), std::begin(found.cFileName) + 1));
    FindClose(search);
}

}  // namespace
