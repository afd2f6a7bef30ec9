// The modules of a process on Windows.
#include "platform/modules.h"

#include "cli/session.h"
#include "platform/windows/wide.h"

#include <fmt/format.h>

#include <windows.h>

#include <tlhelp32.h>

#include <algorithm>

namespace tool::platform {

std::vector<Module> ModulesOf(std::uint32_t process)
{
    const HANDLE list = CreateToolhelp32Snapshot(TH32CS_SNAPMODULE | TH32CS_SNAPMODULE32, process);
    MODULEENTRY32W entry{};
    entry.dwSize = sizeof entry;
    if (list == INVALID_HANDLE_VALUE || Module32FirstW(list, &entry) == FALSE)
        throw Failure(Exit::unreadable,
                      fmt::format("cannot read the modules of process {}: {}", process, LastErrorText()));
    std::vector<Module> modules;
    do {
        modules.push_back({Narrow(entry.szExePath)});
    } while (Module32NextW(list, &entry) != FALSE);
    CloseHandle(list);
    std::sort(modules.begin(), modules.end(), [](const auto& one, const auto& other) { return one.Path < other.Path; });
    return modules;
}

}  // namespace tool::platform
