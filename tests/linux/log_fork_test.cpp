#include "child.h"
#include "log_world.h"

using namespace utility::literals;
using support::Child;
using support::Fields;
using support::LogWorld;
using support::RunAlone;
using utilities::CLog;

namespace {

TEST(LogOnLinux, ForkedChildWritesUnderItsOwnIdAndKeepsTheFamily)
{
    const LogWorld world;
    const support::PipeGate end;
    const support::PipeGate parentEnded;
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
    RunAlone(world, [](const LogWorld&) { CLog::GetInstance()->LogInfo(u"appended"_w, u"Test"_w); });
    parentEnded.Open();
    end.Pass();
    bool found = false;
    for (const Fields& record : support::Records(world.Log)) {
        if (record[4] != "       Child")
            continue;
        found = true;
        EXPECT_EQ(std::stoul(record[1], nullptr, 16), std::stoul(record[5]));
        EXPECT_EQ(std::stoul(record[2], nullptr, 16), std::stoul(record[5]));
    }
    EXPECT_TRUE(found);
    EXPECT_FALSE(std::filesystem::exists(world.Previous));
}

/// The path may have any form that the platform knows, a drive of the settings among them.
TEST(LogOnLinux, FindsTheNameOfThePreviousFileOnADrive)
{
    const LogWorld world;
    const std::string folder = world.Folder.path().string();
    const std::string devices =
        "[HKEY_LOCAL_MACHINE\\SYSTEM\\CurrentControlSet\\Control\\Session Manager\\DOS Devices]\r\n\"D:\"=\"" + folder +
        "\"\r\n";
    for (const std::string& path : {"C:" + folder + "\\App.log", std::string("D:\\App.log")}) {
        world.SetLog(path, "", devices);
        support::WriteFile(world.Log, "old");
        std::filesystem::remove(world.Previous);
        RunAlone(world, [](const LogWorld&) { EXPECT_NE(CLog::GetInstance(), nullptr) << CLog::GetInitError(); });
        EXPECT_EQ(support::ReadFile(world.Previous), "old") << path;
        EXPECT_EQ(support::Texts(world.Log).size(), 4U) << path;
    }
}

}  // namespace
