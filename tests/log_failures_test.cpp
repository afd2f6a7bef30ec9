// What the log answers when the machine fails it: each failure is made to happen.
#include "log_world.h"
#include "system.h"

using namespace utility::literals;
using support::LogWorld;
using support::Process;
using support::RunAlone;
using utilities::CLog;

namespace {

LONG OpeningCode()
{
    return CLog::GetInstance() != nullptr ? 0 : CLog::GetInitError();
}

std::string LogKey(const std::string& values)
{
    return "[" + std::string(support::SuiteKey) + "Log\\Application]\r\n" + values;
}

std::string PathValue(const std::string& path)
{
    return LogKey("\"FilePath\"=\"" + support::Escaped(path) + "\"\r\n");
}

/// A text that fills the room of a path and has no end.
std::string UnendedPathValue()
{
    std::string value = "\"FilePath\"=hex(1):";
    for (int i = 0; i < 513; ++i)
        value += "61,00,";
    value.back() = '\r';
    return LogKey(value + "\n");
}

class LogFailures : public testing::Test {
protected:
    const LogWorld World;
};

TEST_F(LogFailures, OpeningTellsWhyAndTriesAgain)
{
    EXPECT_EQ(CLog::GetInitError(), 0);
    std::filesystem::create_directory(World.Folder / "folder.log");
    RunAlone(World, [](const LogWorld& world) {
        struct Case {
            std::string Settings;
            unsigned Code;
        };
        const std::string longest = (world.Folder.path() / std::string(200, 'a') / std::string(200, 'b')).string();
        const Case cases[] = {
            {"", 0x80070002},
            {LogKey(""), 0x80070002},
            {PathValue(""), 0x80070002},
            {LogKey("\"FilePath\"=hex(1):\r\n"), 0x80070002},
            {PathValue((world.Folder.path() / "missing" / "App.log").string()), 0x80070003},
            {PathValue(world.Folder / "folder.log"), 0x80070005},
            {PathValue("/" + std::string(512, 'x')), 0x800700EA},
            {UnendedPathValue(), 0x800700EA},
            {PathValue(longest), 0x80070003},
        };
        for (const Case& failure : cases) {
            world.SetRegistry(failure.Settings);
            EXPECT_EQ(static_cast<unsigned>(OpeningCode()), failure.Code) << failure.Settings;
        }
        world.SetLog(world.Log);
        EXPECT_EQ(OpeningCode(), 0);
        EXPECT_EQ(CLog::GetInitError(), 0);
    });
    EXPECT_TRUE(std::filesystem::is_directory(World.Folder / "folder.log"));
    EXPECT_EQ(support::Texts(World.Log).size(), 4U);
}

TEST_F(LogFailures, PathOfTheGreatestLengthWorks)
{
    const auto separator = static_cast<char>(std::filesystem::path::preferred_separator);
    std::vector<std::string> made{support::LongPath(World.Folder.path().string())};
    for (const std::size_t length : {200U, 320U, 440U, 512U}) {
        const std::string& parent = made.back();
        made.push_back(parent + separator + std::string(length - parent.size() - 1, 'd'));
        if (length != 512)
            std::filesystem::create_directory(made.back());
    }
    World.SetLog(made.back());
    RunAlone(World, [](const LogWorld&) { EXPECT_EQ(OpeningCode(), 0); });
    EXPECT_EQ(support::Texts(made.back()).size(), 4U);
    for (; made.size() > 1; made.pop_back())
        std::filesystem::remove(made.back());
}

/// Dies as a writer at its record does, which has written the front of it that the file "front" holds.
void DieHolding(const LogWorld& world)
{
    const HANDLE mutex = CreateMutexW(nullptr, FALSE, platform::Wide(world.MutexName().c_str()));
    WaitForSingleObject(mutex, INFINITE);
    std::ofstream(world.Log, std::ios::app | std::ios::binary) << support::ReadFile(world.Folder / "front");
    support::Die();
}

TEST_F(LogFailures, HolderKilledAtItsRecordCostsNobodyElseARecord)
{
    RunAlone(World, [](const LogWorld& world) {
        CLog* const log = CLog::GetInstance();
        const auto dieWriting = [&world](std::string_view front) {
            support::WriteFile(world.Folder / "front", front);
            EXPECT_NE(Process(world, DieHolding).Wait(), 0);
        };
        // What a killed writer may leave: nothing, or the front of its record up to a page of the file.
        const utility::wstring fronts[] = {u""_w, u"2026-11-22 09:0"_w, utility::wstring(4000, u'x')};
        for (const utility::wstring& front : fronts) {
            const std::string_view bytes(reinterpret_cast<const char*>(front.data()), front.size() * 2);
            dieWriting(bytes);
            EXPECT_EQ(log->LogInfo(u"as usual"_w, u"Test"_w), 0);
            if (bytes.size() > 1) {
                dieWriting(bytes.substr(1));
                EXPECT_EQ(log->LogInfo(u"as usual"_w, u"Test"_w), 0);
            }
            // The next to take the lock may also be one that opens the log.
            dieWriting(bytes);
            EXPECT_EQ(log->Initialise(), 0);
        }
    });
    const std::vector<std::string> whole{"----------", "Log opened", "as usual",    "as usual",   "as usual",
                                         "as usual",   "as usual",   "Log closing", "-----------"};
    EXPECT_EQ(support::Texts(World.Log), whole);
}

}  // namespace
