// The list of modules in the log.
#include "system.h"
#include "tessmaru/log.h"
#include "testkit/log_machine.h"
#include "testkit/log_reader.h"
#include "testkit/open_handles.h"
#include "testkit/test_process.h"
#include "testkit/text.h"
#include "testkit/whole_log.h"

#include <cstdio>

namespace {

using testkit::LogMachine;
using testkit::Narrow;
using utilities::CLog;

/// The texts of a log's records from the source "Lib". All have the level of information.
std::vector<std::string> ModuleLines(const LogMachine& machine)
{
    std::vector<std::string> lines;
    const testkit::LogFile log = testkit::WholeLog(machine.Log);
    for (const testkit::Record& record : log.Records()) {
        if (record.Source != "         Lib")
            continue;
        EXPECT_EQ(record.Level, "INFO");
        lines.emplace_back(record.Text);
    }
    return lines;
}

template <class... Values>
std::string Line(const char* format, Values... values)
{
    char line[1024];
    std::snprintf(line, sizeof line, format, values...);
    return line;
}

TEST(ProcessModules, AreAllListed)
{
    RunAlone(LogMachine(), [](const LogMachine& machine) {
        utility::LogProcessModules(CLog::GetInstance());
        const auto process = static_cast<unsigned>(GetCurrentProcessId());
        std::vector<std::string> expected{Line("Module dump of process 0x%08x follows", process)};
        const HANDLE snapshot = CreateToolhelp32Snapshot(TH32CS_SNAPMODULE, 0);
        MODULEENTRY32W module{};
        module.dwSize = sizeof module;
        for (BOOL more = Module32FirstW(snapshot, &module); more; more = Module32NextW(snapshot, &module)) {
            // An address has eight digits, or more if it needs them.
            const auto base = static_cast<unsigned long long>(reinterpret_cast<std::uintptr_t>(module.modBaseAddr));
            const std::string path = Narrow(reinterpret_cast<const unsigned short*>(module.szExePath));
            expected.push_back(Line("Module: 0x%08llx. Base: 0x%08llx. Size: 0x%08x. Name: '%s'", base, base,
                                    static_cast<unsigned>(module.modBaseSize), path.c_str()));
        }
        CloseHandle(snapshot);
        expected.push_back(Line("Module dump of process 0x%08x complete", process));
        EXPECT_GT(expected.size(), 3U);
        EXPECT_EQ(ModuleLines(machine), expected);
    });
}

TEST(ProcessModules, LeaveNoHandleOpen)
{
    RunAlone(LogMachine(), [](const LogMachine&) {
        utility::LogProcessModules(CLog::GetInstance());
        const int handles = testkit::OpenHandles();
        utility::LogProcessModules(CLog::GetInstance());
        EXPECT_EQ(testkit::OpenHandles(), handles);
    });
}

TEST(ProcessModules, AreNotReadForANullLog)
{
    SetLastError(4711);
    utility::LogProcessModules(nullptr);
    EXPECT_EQ(GetLastError(), 4711U);
}

}  // namespace
