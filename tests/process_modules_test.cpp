#include "log_world.h"
#include "primitives/unique_handle.h"
#include "system.h"
#include "tessmaru/errors.h"

#include <regex>

// The source once more, over operations that fail when a test says so.
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

using support::LogWorld;
using support::Narrow;
using utilities::CLog;

/// The texts of a log's records from the source "Lib"; all are information.
std::vector<std::string> ModuleLines(const LogWorld& world)
{
    std::vector<std::string> lines;
    for (const support::Fields& record : support::Records(world.Log)) {
        if (record[4] != "         Lib")
            continue;
        EXPECT_EQ(record[3], "INFO");
        lines.push_back(record.back());
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
    // Eight digits, or as many more as the address has.
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
    RunAlone(LogWorld(), [](const LogWorld& world) {
        utility::LogProcessModules(CLog::GetInstance());
        const std::vector<std::string> lines = ModuleLines(world);
        ASSERT_GT(lines.size(), 3U);
        EXPECT_EQ(lines.front(), ProcessLine("follows"));
        EXPECT_EQ(lines.back(), ProcessLine("complete"));
        const HMODULE program = GetModuleHandleW(nullptr);
        const HMODULE modules[] = {program, support::SystemModule()};
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

TEST(ProcessModules, OfANullLogAreNotEvenLookedAt)
{
    failing.Snapshot = true;
    SetLastError(4711);
    utility::LogProcessModulesOrFail(nullptr);
    EXPECT_EQ(GetLastError(), 4711U);
    failing.Snapshot = false;
}

TEST(ProcessModules, TellWhyTheyCannotBeListed)
{
    RunAlone(LogWorld(), [](const LogWorld& world) {
        failing.Snapshot = true;
        utility::LogProcessModulesOrFail(CLog::GetInstance());
        const std::string reason = Narrow(utility::genHResultAsString(E_ACCESSDENIED));
        EXPECT_NE(reason, "");
        EXPECT_EQ(ModuleLines(world),
                  (std::vector{ProcessLine("follows"), "Unable to log process modules (" + reason + ")"}));
    });
}

TEST(ProcessModules, TellThatTheListCannotBeWalked)
{
    RunAlone(LogWorld(), [](const LogWorld& world) {
        failing.Walk = true;
        utility::LogProcessModulesOrFail(CLog::GetInstance());
        EXPECT_EQ(ModuleLines(world),
                  (std::vector<std::string>{ProcessLine("follows"),
                                            "Unable to log process modules (unable to walk process module list)",
                                            ProcessLine("complete")}));
        MODULEENTRY32W module{};
        module.dwSize = sizeof module;
        EXPECT_FALSE(Module32FirstW(lastSnapshot, &module)) << "the snapshot is closed all the same";
    });
}

}  // namespace
