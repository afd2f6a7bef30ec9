// The list of modules in the log.
#include "system.h"
#include "tessmaru/log.h"
#include "testkit/known_modules.h"
#include "testkit/log_machine.h"
#include "testkit/log_reader.h"
#include "testkit/open_handles.h"
#include "testkit/test_process.h"
#include "testkit/text.h"
#include "testkit/whole_log.h"

#include <regex>

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

const int constant = 0;  // is in the program's module

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
                EXPECT_EQ(listed.Holds(&constant), module == program) << lines[i];
            }
        }
        EXPECT_EQ(found, 2) << "once each";
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
