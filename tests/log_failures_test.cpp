// Failures of the log, each of which the test causes.
#include "system.h"
#include "tessmaru/log.h"
#include "testkit/file_content.h"
#include "testkit/log_machine.h"
#include "testkit/paths.h"
#include "testkit/settings_text.h"
#include "testkit/test_process.h"
#include "testkit/whole_log.h"

#include <fstream>

using namespace utility::literals;
using testkit::LogMachine;
using testkit::RunAlone;
using testkit::TestProcess;
using utilities::CLog;

namespace {

LONG OpeningCode()
{
    return CLog::GetInstance() != nullptr ? 0 : CLog::GetInitError();
}

std::string LogKey(const std::string& values)
{
    return testkit::Section(testkit::SuiteKey + "Log\\Application", values);
}

/// A text that fills the buffer of a path and has no terminator.
std::string UnterminatedPath()
{
    std::string value = "\"FilePath\"=hex(1):";
    for (int i = 0; i < 513; ++i)
        value += "61,00,";
    value.back() = '\r';
    return LogKey(value + "\n");
}

class LogFailures : public testing::Test {
protected:
    const LogMachine Machine;
};

TEST_F(LogFailures, OpeningReportsItsCodeAndTriesAgain)
{
    EXPECT_EQ(CLog::GetInitError(), 0);
    std::filesystem::create_directory(Machine.Folder / "folder.log");
    RunAlone(Machine, [](const LogMachine& machine) {
        struct Case {
            std::string Settings;
            unsigned Code;
        };
        const std::string longest = (machine.Folder.path() / std::string(200, 'a') / std::string(200, 'b')).string();
        const Case cases[] = {
            {"", 0x80070002},
            {LogKey(""), 0x80070002},
            {testkit::LogSection(""), 0x80070002},
            {LogKey("\"FilePath\"=hex(1):\r\n"), 0x80070002},
            {testkit::LogSection((machine.Folder.path() / "missing" / "App.log").string()), 0x80070003},
            {testkit::LogSection((machine.Folder / "folder.log").string()), 0x80070005},
            {testkit::LogSection("/" + std::string(512, 'x')), 0x800700EA},
            {UnterminatedPath(), 0x800700EA},
            {testkit::LogSection(longest), 0x80070003},
        };
        for (const Case& failure : cases) {
            machine.Settings.Set(failure.Settings);
            EXPECT_EQ(static_cast<unsigned>(OpeningCode()), failure.Code) << failure.Settings;
        }
        machine.SetLog(machine.Log);
        EXPECT_EQ(OpeningCode(), 0);
        EXPECT_EQ(CLog::GetInitError(), 0);
    });
    EXPECT_TRUE(std::filesystem::is_directory(Machine.Folder / "folder.log"));
    EXPECT_EQ(testkit::Texts(Machine.Log).size(), 4U);
}

TEST_F(LogFailures, PathOfTheMaximumLengthWorks)
{
    const auto separator = static_cast<char>(std::filesystem::path::preferred_separator);
    std::vector<std::string> made{testkit::LongPath(Machine.Folder.path().string())};
    for (const std::size_t length : {200U, 320U, 440U, 512U}) {
        const std::string& parent = made.back();
        made.push_back(parent + separator + std::string(length - parent.size() - 1, 'd'));
        if (length != 512)
            std::filesystem::create_directory(made.back());
    }
    Machine.SetLog(made.back());
    RunAlone(Machine, [](const LogMachine&) { EXPECT_EQ(OpeningCode(), 0); });
    EXPECT_EQ(testkit::Texts(made.back()).size(), 4U);
    for (; made.size() > 1; made.pop_back())
        std::filesystem::remove(made.back());
}

/// Dies as a writer dies within its record, after it has written the start that the file "start" holds.
void DieHolding(const LogMachine& machine)
{
    const HANDLE mutex = CreateMutexW(nullptr, FALSE, platform::Wide(machine.MutexName().c_str()));
    WaitForSingleObject(mutex, INFINITE);
    std::ofstream(machine.Log, std::ios::app | std::ios::binary) << testkit::ReadFile(machine.Folder / "start");
    testkit::Die();
}

TEST_F(LogFailures, WriterKilledWithinItsRecordCostsNoOtherRecord)
{
    RunAlone(Machine, [](const LogMachine& machine) {
        CLog* const log = CLog::GetInstance();
        const auto dieWriting = [&machine](std::string_view start) {
            testkit::WriteFile(machine.Folder / "start", start);
            EXPECT_NE(TestProcess(machine, DieHolding).Wait(), 0);
        };
        // A killed writer may leave nothing, or the start of its record up to a page of the file.
        const utility::wstring starts[] = {u""_w, u"2026-11-22 09:0"_w, utility::wstring(4000, u'x')};
        for (const utility::wstring& start : starts) {
            const std::string_view bytes(reinterpret_cast<const char*>(start.data()), start.size() * 2);
            dieWriting(bytes);
            EXPECT_EQ(log->LogInfo(u"as usual"_w, u"Test"_w), 0);
            if (bytes.size() > 1) {
                dieWriting(bytes.substr(1));
                EXPECT_EQ(log->LogInfo(u"as usual"_w, u"Test"_w), 0);
            }
            // The next process that takes the lock may also open the log.
            dieWriting(bytes);
            EXPECT_EQ(log->Initialise(), 0);
        }
        dieWriting("2");  // the next record is the closing line
    });
    const std::vector<std::string> whole{"----------", "Log opened", "as usual",    "as usual",   "as usual",
                                         "as usual",   "as usual",   "Log closing", "-----------"};
    // What the killed writers left stays, each part in a separate line.
    const testkit::LogFile log(Machine.Log);
    std::vector<std::string> texts;
    for (const testkit::Record& record : log.Records())
        texts.emplace_back(record.Text);
    EXPECT_EQ(texts, whole);
    EXPECT_EQ(log.Torn().size(), 7U);
}

}  // namespace
