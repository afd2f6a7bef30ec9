// The log across a fork, and on a drive of the settings.
#include "tessmaru/log.h"
#include "testkit/file_content.h"
#include "testkit/gate.h"
#include "testkit/linux/child.h"
#include "testkit/log_machine.h"
#include "testkit/log_reader.h"
#include "testkit/settings_text.h"
#include "testkit/test_process.h"
#include "testkit/whole_log.h"

using namespace utility::literals;
using testkit::Child;
using testkit::LogMachine;
using testkit::RunAlone;
using utilities::CLog;

namespace {

TEST(LogOnLinux, ForkedChildWritesUnderItsOwnIdAndKeepsTheFamily)
{
    const LogMachine machine;
    const testkit::Gate end(machine.Folder / "end");
    const testkit::Gate parentEnded(machine.Folder / "parentEnded");
    Child parent([&] {
        CLog* const log = CLog::GetInstance();
        if (fork() != 0)
            std::exit(0);
        parentEnded.Pass();
        log->LogInfo(u"%u"_w, u"Child"_w, static_cast<unsigned>(getpid()));
        end.Open();
        _exit(0);
    });
    parent.Wait();
    RunAlone(machine, [](const LogMachine&) { CLog::GetInstance()->LogInfo(u"appended"_w, u"Test"_w); });
    parentEnded.Open();
    end.Pass();
    bool found = false;
    const testkit::LogFile log = testkit::WholeLog(machine.Log);
    for (const testkit::Record& record : log.Records()) {
        if (record.Source != "       Child")
            continue;
        found = true;
        const unsigned long child = std::stoul(std::string(record.Text));
        EXPECT_EQ(std::stoul(std::string(record.Process), nullptr, 16), child);
        EXPECT_EQ(std::stoul(std::string(record.Thread), nullptr, 16), child);
    }
    EXPECT_TRUE(found);
    EXPECT_FALSE(std::filesystem::exists(machine.Previous));
}

TEST(LogOnLinux, FindsTheNameOfThePreviousFileOnADrive)
{
    const LogMachine machine;
    const std::string folder = machine.Folder.path().string();
    const std::string devices =
        testkit::Section("HKEY_LOCAL_MACHINE\\SYSTEM\\CurrentControlSet\\Control\\Session Manager\\DOS Devices",
                         testkit::TextValue("D:", folder));
    for (const std::string& path : {"C:" + folder + "\\App.log", std::string("D:\\App.log")}) {
        machine.SetLog(path, "", devices);
        testkit::WriteFile(machine.Log, "old");
        std::filesystem::remove(machine.Previous);
        RunAlone(machine, [](const LogMachine&) { EXPECT_NE(CLog::GetInstance(), nullptr) << CLog::GetInitError(); });
        EXPECT_EQ(testkit::ReadFile(machine.Previous), "old") << path;
        EXPECT_EQ(testkit::Texts(machine.Log).size(), 4U) << path;
    }
}

}  // namespace
