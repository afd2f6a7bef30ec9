// The list of modules in the log. The source is compiled a second time here, with platform operations that fail where a
// test says so.
#include "primitives/unique_handle.h"
#include "system.h"
#include "tessmaru/errors.h"
#include "tessmaru/log.h"
#include "testkit/known_modules.h"
#include "testkit/log_machine.h"
#include "testkit/log_reader.h"
#include "testkit/test_process.h"
#include "testkit/text.h"
#include "testkit/whole_log.h"

#include <regex>

namespace {

struct {
    bool Snapshot = false;
    bool Walk = false;
} failing;

HANDLE lastSnapshot = nullptr;

HANDLE MayFailToSnapshot(DWORD flags, DWORD process)
{
    if (failing.Snapshot) {
        SetLastError(ERROR_ACCESS_DENIED);
        return INVALID_HANDLE_VALUE;
    }
    return lastSnapshot = CreateToolhelp32Snapshot(flags, process);
}

BOOL MayFailToWalk(HANDLE snapshot, MODULEENTRY32W* entry)
{
    return failing.Walk ? FALSE : Module32FirstW(snapshot, entry);
}

}  // namespace

namespace utility {
void LogProcessModulesOrFail(utilities::CLog* log);
}
#define CreateToolhelp32Snapshot MayFailToSnapshot
#define Module32FirstW MayFailToWalk
#define LogProcessModules LogProcessModulesOrFail
#include "log/process_modules.cpp"
#undef CreateToolhelp32Snapshot
#undef Module32FirstW
#undef LogProcessModules

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

std::string ProcessLine(const char* end)
{
    char line[64];
    std::snprintf(line, sizeof line, "Module dump of process 0x%08x %s", static_cast<unsigned>(GetCurrentProcessId()),
                  end);
    return line;
}

struct Listed {
    std::uintptr_t Module;
    std::uintptr_t Base;
    std::uintptr_t Size;
    std::string Name;

    bool Holds(const void* address) const
    {
        const auto place = reinterpret_cast<std::uintptr_t>(address);
        return place >= Base && place - Base < Size;
    }
};

Listed Parse(const std::string& line)
{
    // Eight digits, or more if the address has more.
    static const std::regex form(
        "Module: 0x([0-9a-f]{8}|[1-9a-f][0-9a-f]{8,15})\\. Base: 0x([0-9a-f]{8,16})\\. "
        "Size: 0x([0-9a-f]{8})\\. Name: '(.+)'");
    std::smatch parts;
    EXPECT_TRUE(std::regex_match(line, parts, form)) << line;
    if (parts.empty())
        return {};
    const auto number = [&](std::size_t part) {
        return static_cast<std::uintptr_t>(std::stoull(parts[part], nullptr, 16));
    };
    return {number(1), number(2), number(3), parts[4]};
}

TEST(ProcessModules, AreAllListed)
{
    RunAlone(LogMachine(), [](const LogMachine& machine) {
        utility::LogProcessModules(CLog::GetInstance());
        const std::vector<std::string> lines = ModuleLines(machine);
        ASSERT_GT(lines.size(), 3U);
        EXPECT_EQ(lines.front(), ProcessLine("follows"));
        EXPECT_EQ(lines.back(), ProcessLine("complete"));
        const HMODULE program = GetModuleHandleW(nullptr);
        const HMODULE modules[] = {program, testkit::SystemModule()};
        int found = 0;
        for (std::size_t i = 1; i + 1 < lines.size(); ++i) {
            const Listed listed = Parse(lines[i]);
            EXPECT_EQ(listed.Base, listed.Module) << lines[i];
            EXPECT_GT(listed.Size, 0U) << lines[i];
            for (const HMODULE module : modules) {
                if (listed.Module != reinterpret_cast<std::uintptr_t>(module))
                    continue;
                ++found;
                unsigned short path[1024]{};
                GetModuleFileNameW(module, platform::Wide(path), 1023);
                EXPECT_EQ(listed.Name, Narrow(path));
                EXPECT_EQ(listed.Holds(&failing), module == program) << lines[i];
            }
        }
        EXPECT_EQ(found, 2) << "once each";
    });
}

TEST(ProcessModules, AreNotReadForANullLog)
{
    failing.Snapshot = true;
    SetLastError(4711);
    utility::LogProcessModulesOrFail(nullptr);
    EXPECT_EQ(GetLastError(), 4711U);
    failing.Snapshot = false;
}

TEST(ProcessModules, ReportWhyTheyCannotBeListed)
{
    RunAlone(LogMachine(), [](const LogMachine& machine) {
        failing.Snapshot = true;
        utility::LogProcessModulesOrFail(CLog::GetInstance());
        const std::string reason = Narrow(utility::genHResultAsString(E_ACCESSDENIED));
        EXPECT_NE(reason, "");
        EXPECT_EQ(ModuleLines(machine),
                  (std::vector{ProcessLine("follows"), "Unable to log process modules (" + reason + ")"}));
    });
}

TEST(ProcessModules, ReportThatTheListCannotBeWalked)
{
    RunAlone(LogMachine(), [](const LogMachine& machine) {
        failing.Walk = true;
        utility::LogProcessModulesOrFail(CLog::GetInstance());
        EXPECT_EQ(ModuleLines(machine),
                  (std::vector<std::string>{ProcessLine("follows"),
                                            "Unable to log process modules (unable to walk process module list)",
                                            ProcessLine("complete")}));
        MODULEENTRY32W module{};
        module.dwSize = sizeof module;
        EXPECT_FALSE(Module32FirstW(lastSnapshot, &module)) << "the snapshot is closed all the same";
    });
}

}  // namespace
