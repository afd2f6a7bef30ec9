// What the doctor says about real processes that have a log open.
#include "tessmaru/log.h"
#include "tessmaru/platform.h"
#include "testkit/environment_variable.h"
#include "testkit/linux/child.h"
#include "testkit/log_machine.h"
#include "verbs/doctor/findings.h"

#include <gtest/gtest.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iostream>
#include <list>
#include <thread>
#include <unistd.h>

using namespace utility::literals;
using testkit::Child;
using testkit::LogMachine;
using utilities::CLog;

namespace {

/// Processes with the log of a machine open, until the end of the test.
class Writers {
public:
    explicit Writers(const LogMachine& machine) : Machine(machine) {}

    /// Starts a process that sets itself up, opens the log and then does its work. Returns when the log is open.
    Child& Start(
        const std::function<void()>& setUp = [] {}, const std::function<void(CLog*)>& work = [](CLog*) {})
    {
        int ends[2];
        if (pipe(ends) != 0)
            throw std::runtime_error("no pipe");
        Child& child = Children.emplace_back([&] {
            setUp();
            CLog* const log = CLog::GetInstance();
            if (log == nullptr)
                _exit(1);
            if (write(ends[1], "!", 1) == 1)
                work(log);
            for (;;)
                pause();
        });
        close(ends[1]);
        char ready = 0;
        EXPECT_EQ(read(ends[0], &ready, 1), 1) << "the process has not opened the log";
        close(ends[0]);
        return child;
    }

    /// The result of one check.
    tool::Finding Find(const std::string& check) const
    {
        tool::Findings findings;
        tool::CheckProcesses(Machine.Log, tool::platform::FindLogUsers(Machine.Log), findings);
        for (const tool::Finding& finding : findings) {
            if (finding.Check == check)
                return finding;
        }
        return {check, tool::Verdict::ok, "not checked", {}};
    }

    /// Waits until a finding has a text: other processes get there in their own time.
    bool WaitFor(const std::string& check, const std::string& text) const
    {
        const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(60);
        while (std::chrono::steady_clock::now() < end) {
            if (Find(check).Text.find(text) != std::string::npos)
                return true;
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
        return false;
    }

private:
    const LogMachine& Machine;
    std::list<Child> Children;
};

std::string Id(const Child& child)
{
    return std::to_string(child.id());
}

TEST(DoctorProcesses, FindsTheWritersAndTheirMutex)
{
    const LogMachine machine;
    Writers writers(machine);
    EXPECT_EQ(writers.Find("writers").Text, "no process has the log open");
    const Child& one = writers.Start();
    const Child& other = writers.Start();
    const std::string text = writers.Find("writers").Text;
    EXPECT_NE(text.find(Id(one)), std::string::npos) << text;
    EXPECT_NE(text.find(Id(other)), std::string::npos) << text;
    EXPECT_EQ(writers.Find("mutex").Text, "free");
    EXPECT_NE(writers.Find("mutexes").Text.find("all writers have the same one"), std::string::npos);
    std::filesystem::remove(machine.Log);
    EXPECT_EQ(writers.Find("removed").Result, tool::Verdict::warning);
}

TEST(DoctorProcesses, FindsAStoppedOwnerAndWhoWaits)
{
    const LogMachine machine;
    Writers writers(machine);
    // It opens the log first: later it would wait for the owner.
    const Child& waiter = writers.Start([] {},
                                        [](CLog* log) {
                                            for (;;)
                                                log->LogInfo(u"text"_w, u"Test"_w);
                                        });
    const Child& owner = writers.Start([] {},
                                       [&](CLog*) {
                                           const HANDLE mutex =
                                               CreateMutexW(nullptr, FALSE, machine.MutexName().c_str());
                                           WaitForSingleObject(mutex, 0xFFFFFFFF);
                                       });
    ASSERT_TRUE(writers.WaitFor("mutex", "owned by " + Id(owner)));
    EXPECT_EQ(writers.Find("stopped").Text, "not checked");
    if (std::string call; std::getline(std::ifstream("/proc/" + Id(waiter) + "/syscall"), call))
        EXPECT_TRUE(writers.WaitFor("waiting", Id(waiter)));
    else
        std::cout << "not checked: this machine does not show in which call a process waits\n";
    owner.Stop();
    ASSERT_TRUE(writers.WaitFor("mutex", "the owner is stopped"));
    EXPECT_EQ(writers.Find("mutex").Result, tool::Verdict::failure);
    EXPECT_EQ(writers.Find("mutex").Mend, "kill -CONT " + Id(owner));
    EXPECT_EQ(writers.Find("stopped").Result, tool::Verdict::warning);
}

TEST(DoctorProcesses, FindsMutexesThatDiffer)
{
    struct {
        const char* Check;
        const char* Text;
        std::function<void(const LogMachine&)> SetUp;
    } const cases[] = {
        {"mutexes", "different runtime folders",
         [](const LogMachine& machine) {
             std::filesystem::create_directory(machine.Folder / "other");
             testkit::SetVariable("VELTRIX_RUNTIME", (machine.Folder / "other").string());
         }},
        {"spelling", "spell the path differently",
         [](const LogMachine& machine) { machine.SetLog((machine.Folder / "." / "App.log").string()); }},
    };
    for (const auto& each : cases) {
        const LogMachine machine;
        Writers writers(machine);
        writers.Start();
        writers.Start([&] { each.SetUp(machine); });
        const tool::Finding finding = writers.Find(each.Check);
        EXPECT_EQ(finding.Result, tool::Verdict::failure) << each.Check;
        EXPECT_NE(finding.Text.find(each.Text), std::string::npos) << finding.Text;
    }
}

}  // namespace
