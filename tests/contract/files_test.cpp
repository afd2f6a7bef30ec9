// Files: what opens, where a position is, what is found, moved and deleted.
#include "processes.h"
#include "system.h"

#include <gtest/gtest.h>

#include <chrono>
#include <optional>

using platform::Wide;

namespace {

constexpr DWORD ReadWrite = GENERIC_READ | GENERIC_WRITE;
constexpr DWORD ShareAll = FILE_SHARE_READ | FILE_SHARE_WRITE;

class FileWorld : public support::Machine {
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

    void Put(const std::string& name, std::string_view content) const { support::WriteFile(Folder / name, content); }
    std::string Content(const std::string& name = "file") const { return support::ReadFile(Folder / name); }
    bool Has(const std::string& name) const { return std::filesystem::exists(Folder / name); }

    /// A name in the test's folder; one with a drive stands for itself.
    utility::wstring Path(const std::string& name) const
    {
        return support::Wide(name.find(':') != std::string::npos ? name : Folder / name);
    }
};

class Files : public testing::Test {
protected:
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
    /// The reason of a call that has to fail.
    static DWORD Refused(bool done)
    {
        const DWORD error = GetLastError();
        EXPECT_FALSE(done);
        return error;
    }
    static DWORD Refused(HANDLE handle) { return Refused(handle != INVALID_HANDLE_VALUE); }

    const FileWorld World{};
};

TEST_F(Files, DispositionsDecideWhatIsOpened)
{
    const struct {
        DWORD Disposition;
        bool Exists;
        std::optional<DWORD> Error;  // where one is promised
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
        std::filesystem::remove(World.Folder / "file");
        if (opening.Exists)
            World.Put("file", "old");
        SetLastError(99);
        const HANDLE file = World.Open(opening.Disposition);
        if (opening.Error) {
            EXPECT_EQ(GetLastError(), *opening.Error);
        }
        ASSERT_EQ(file != INVALID_HANDLE_VALUE, opening.Opens);
        EXPECT_EQ(World.Has("file"), opening.Exists || opening.Opens);
        EXPECT_EQ(World.Content(), opening.Content);
        if (opening.Opens) {
            EXPECT_TRUE(CloseHandle(file));
        }
    }
}

TEST_F(Files, WhereNoFileCanBeIsTold)
{
    std::filesystem::create_directory(World.Folder / "folder");
    World.Put("plain", "old");
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
        EXPECT_EQ(Refused(World.Open(row.Disposition, row.Name)), row.Error) << row.Name << ' ' << row.Disposition;
    const unsigned short nothing[] = {0};
    EXPECT_EQ(Refused(CreateFileW(Wide(nothing), ReadWrite, ShareAll, nullptr, OPEN_ALWAYS, 0, nullptr)),
              DWORD{ERROR_PATH_NOT_FOUND});
    EXPECT_EQ(Refused(World.Open(OPEN_EXISTING, "folder", GENERIC_READ)), DWORD{ERROR_ACCESS_DENIED});
}

TEST_F(Files, BothSeparatorsAndRelativePathsLeadToAFile)
{
    std::filesystem::create_directory(World.Folder / "folder");
    const auto before = std::filesystem::current_path();
    std::filesystem::current_path(World.Folder.path());
    for (const char* const name : {"folder\\file", "folder/file", ".\\folder\\..\\folder/file"}) {
        SetLastError(99);
        const HANDLE file = CreateFileW(Wide(support::Wide(name).c_str()), ReadWrite, ShareAll, nullptr, OPEN_ALWAYS,
                                        FILE_ATTRIBUTE_NORMAL, nullptr);
        EXPECT_NE(file, INVALID_HANDLE_VALUE) << name;
        EXPECT_TRUE(World.Has("folder/file")) << name;
        CloseHandle(file);
        EXPECT_TRUE(World.Delete(name)) << name;
    }
    std::filesystem::current_path(before);
}

TEST_F(Files, AccessIsWhatWasAskedFor)
{
    World.Put("file", "old");
    const HANDLE reader = World.Open(OPEN_EXISTING, "file", GENERIC_READ);
    EXPECT_EQ(Read(reader, 9), "old");
    EXPECT_EQ(Refused(Write(reader, "x")), DWORD{ERROR_ACCESS_DENIED});
    const HANDLE writer = World.Open(OPEN_EXISTING, "file", GENERIC_WRITE);
    EXPECT_TRUE(Write(writer, "new"));
    EXPECT_EQ(Refused(Read(writer, 1).has_value()), DWORD{ERROR_ACCESS_DENIED});
    CloseHandle(writer);
    CloseHandle(reader);
    EXPECT_EQ(World.Content(), "new");
}

TEST_F(Files, TwoHandlesAppendInTurn)
{
    const HANDLE one = World.Open(OPEN_ALWAYS);
    const HANDLE two = World.Open(OPEN_ALWAYS);
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
    EXPECT_EQ(World.Content(), whole);
    EXPECT_EQ(SetFilePointer(one, 0, nullptr, FILE_BEGIN), 0U);
    EXPECT_EQ(Read(one, 3), whole.substr(0, 3)) << "a handle that has appended reads where it is";
    EXPECT_TRUE(Write(one, "X"));
    whole[3] = 'X';
    EXPECT_EQ(SetFilePointer(one, -1, nullptr, FILE_END), whole.size() - 1);
    EXPECT_TRUE(Write(one, "Y"));
    whole.back() = 'Y';
    EXPECT_EQ(World.Content(), whole);
    CloseHandle(one);
    CloseHandle(two);
}

TEST_F(Files, ReadingStopsAtTheEnd)
{
    World.Put("file", "12345");
    const HANDLE file = World.Open(OPEN_EXISTING);
    for (const char* const part : {"123", "45", "", ""})
        EXPECT_EQ(Read(file, 3), part);
    EXPECT_EQ(SetFilePointer(file, 100, nullptr, FILE_BEGIN), 100U);
    EXPECT_EQ(Read(file, 3), "") << "beyond the end too";
    EXPECT_EQ(SetFilePointer(file, -2, nullptr, FILE_END), 3U);
    EXPECT_EQ(Read(file, 0), "");
    EXPECT_EQ(Read(file, 9), "45");
    CloseHandle(file);
}

TEST_F(Files, EndMovesToThePosition)
{
    World.Put("file", "12345");
    const HANDLE file = World.Open(OPEN_EXISTING);
    SetFilePointer(file, 2, nullptr, FILE_BEGIN);
    EXPECT_TRUE(SetEndOfFile(file));
    EXPECT_EQ(World.Content(), "12");
    SetFilePointer(file, 4, nullptr, FILE_BEGIN);
    EXPECT_TRUE(SetEndOfFile(file));
    EXPECT_EQ(World.Content(), std::string("12\0\0", 4));
    SetFilePointer(file, 5, nullptr, FILE_BEGIN);
    EXPECT_TRUE(Write(file, ""));
    EXPECT_EQ(World.Content().size(), 4U) << "a write of nothing";
    EXPECT_TRUE(Write(file, "x"));
    EXPECT_EQ(World.Content(), std::string("12\0\0\0x", 6));
    CloseHandle(file);
}

TEST_F(Files, PositionsBeyondFourGigabytesNeedTheHighHalf)
{
    const HANDLE file = World.Open(OPEN_ALWAYS);
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
    EXPECT_EQ(SetFilePointer(file, 7, nullptr, FILE_BEGIN), 7U) << "low positions do without";
    // The one position whose low half looks like the failure.
    high = 0;
    SetLastError(99);
    EXPECT_EQ(seek(0xFFFFFFFF, high, FILE_BEGIN), DWORD{INVALID_SET_FILE_POINTER});
    EXPECT_EQ(GetLastError(), DWORD{NO_ERROR});
    EXPECT_EQ(high, 0);
    CloseHandle(file);
}

TEST_F(Files, SeekThatLeadsNowhereIsRefused)
{
    const HANDLE file = World.Open(OPEN_ALWAYS);
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
    const HANDLE file = World.Open(OPEN_ALWAYS);
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
    const HANDLE file = World.Open(OPEN_ALWAYS);
    const auto keeps = [](const FileWorld& world) {
        EXPECT_EQ(Refused(world.Delete("file")), DWORD{ERROR_SHARING_VIOLATION});
        EXPECT_EQ(Refused(world.Move("file", "moved")), DWORD{ERROR_SHARING_VIOLATION});
        const HANDLE further = world.Open(OPEN_EXISTING);
        EXPECT_NE(further, INVALID_HANDLE_VALUE) << "to be opened once more is another matter";
        CloseHandle(further);
    };
    keeps(World);
    support::RunAlone(World, keeps);
    CloseHandle(file);
    EXPECT_TRUE(World.Move("file", "moved"));
    EXPECT_TRUE(World.Delete("moved"));
    EXPECT_FALSE(World.Has("file") || World.Has("moved"));
}

TEST_F(Files, HolderThatDiesLetsGo)
{
    EXPECT_NE(support::Process(World,
                               [](const FileWorld& world) {
                                   world.Open(OPEN_ALWAYS);
                                   support::Die();
                               })
                  .Wait(),
              0);
    EXPECT_TRUE(World.Has("file"));
    EXPECT_TRUE(World.Delete("file"));
}

TEST_F(Files, MoveReplacesNothing)
{
    World.Put("file", "content");
    World.Put("taken", "other");
    std::filesystem::create_directory(World.Folder / "folder");
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
        EXPECT_EQ(Refused(World.Move(row.From, row.To)), row.Error) << row.From << " to " << row.To;
    EXPECT_EQ(World.Content("taken"), "other");
    EXPECT_TRUE(World.Move("file", "folder\\moved"));
    EXPECT_TRUE(World.Move("folder", "another"));
    EXPECT_EQ(World.Content("another/moved"), "content");
    EXPECT_FALSE(World.Has("file") || World.Has("folder"));
}

TEST_F(Files, DeleteTellsWhatItDidNotFind)
{
    std::filesystem::create_directory(World.Folder / "folder");
    World.Put("plain", "");
    const struct {
        const char* Name;
        DWORD Error;
    } rows[] = {
        {"none", ERROR_FILE_NOT_FOUND},
        {"missing\\none", ERROR_PATH_NOT_FOUND},
        {"plain\\none", ERROR_PATH_NOT_FOUND},
        {"folder", ERROR_ACCESS_DENIED},
        {"Q:\\folder\\none", ERROR_PATH_NOT_FOUND},
    };
    for (const auto& row : rows)
        EXPECT_EQ(Refused(World.Delete(row.Name)), row.Error) << row.Name;
    EXPECT_TRUE(World.Has("folder"));
    EXPECT_TRUE(World.Delete("plain"));
    EXPECT_EQ(Refused(World.Delete("plain")), DWORD{ERROR_FILE_NOT_FOUND});
}

TEST_F(Files, SearchTellsWhatIsThere)
{
    std::filesystem::create_directory(World.Folder / "folder");
    World.Put("file", "12345");
    WIN32_FIND_DATAW found;
    HANDLE search = World.Find("file", found);
    ASSERT_NE(search, INVALID_HANDLE_VALUE);
    EXPECT_EQ(found.nFileSizeLow, 5U);
    EXPECT_EQ(found.nFileSizeHigh, 0U);
    EXPECT_EQ(found.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY, 0U);
    EXPECT_EQ(std::string(std::begin(found.cFileName), std::begin(found.cFileName) + 5), std::string("file\0", 5));
    EXPECT_EQ(Refused(CloseHandle(search) != FALSE), DWORD{ERROR_INVALID_HANDLE}) << "a search has its own closing";
    EXPECT_TRUE(FindClose(search));

    // Ticks of 100 ns since the year 1601.
    const auto written = (std::int64_t{found.ftLastWriteTime.dwHighDateTime} << 32) +
                         std::int64_t{found.ftLastWriteTime.dwLowDateTime} - 116'444'736'000'000'000;
    const auto now =
        std::chrono::duration_cast<std::chrono::seconds>(std::chrono::system_clock::now().time_since_epoch());
    EXPECT_LE(std::abs(now.count() - written / 10'000'000), 60);

    search = World.Find("folder", found);
    EXPECT_NE(search, INVALID_HANDLE_VALUE);
    EXPECT_NE(found.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY, 0U);
    EXPECT_TRUE(FindClose(search));
    EXPECT_EQ(Refused(FindClose(INVALID_HANDLE_VALUE) != FALSE), DWORD{ERROR_INVALID_HANDLE});

    const struct {
        const char* Name;
        DWORD Error;
    } rows[] = {
        {"none", ERROR_FILE_NOT_FOUND},     {"folder\\none", ERROR_FILE_NOT_FOUND},
        {"folder\\", ERROR_FILE_NOT_FOUND}, {"missing\\none", ERROR_PATH_NOT_FOUND},
        {"Q:\\none", ERROR_PATH_NOT_FOUND},
    };
    for (const auto& row : rows)
        EXPECT_EQ(Refused(World.Find(row.Name, found)), row.Error) << row.Name;
}

TEST_F(Files, NamesKeepTheirLetters)
{
    const unsigned short letters[] = {0xE4, 0x4E2D, 0xD834, 0xDD1E, 0};
    const utility::wstring path = World.Path("x") + letters;
    const HANDLE file = CreateFileW(Wide(path.c_str()), ReadWrite, ShareAll, nullptr, CREATE_NEW, 0, nullptr);
    ASSERT_NE(file, INVALID_HANDLE_VALUE);
    CloseHandle(file);
    EXPECT_TRUE(std::filesystem::exists(World.Folder.path() / u8"x\u00e4\u4e2d\U0001D11E"));
    WIN32_FIND_DATAW found;
    const HANDLE search = FindFirstFileW(Wide(path.c_str()), &found);
    ASSERT_NE(search, INVALID_HANDLE_VALUE);
    EXPECT_TRUE(std::equal(std::begin(letters), std::end(letters), std::begin(found.cFileName) + 1));
    FindClose(search);
}

}  // namespace
