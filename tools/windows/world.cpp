// A key of the user stands for HKEY_LOCAL_MACHINE in the processes of the world.
#include "tools/world.h"

#include "wide.h"

#include <algorithm>
#include <fstream>
#include <stdexcept>

namespace tools {
namespace {

constexpr const wchar_t* WorldVariable = L"TESSMARU_TOOLS_WORLD";
constexpr std::string_view Machine = "[HKEY_LOCAL_MACHINE";

void UseInsteadOfMachine(const std::wstring& path)
{
    HKEY key = nullptr;
    if (RegCreateKeyExW(HKEY_CURRENT_USER, path.c_str(), 0, nullptr, 0, KEY_ALL_ACCESS, nullptr, &key, nullptr) != 0 ||
        RegOverridePredefKey(HKEY_LOCAL_MACHINE, key) != 0)
        throw std::runtime_error("the key of the run's settings");
    RegCloseKey(key);
}

/// The machine's sections of an export as an export of the user's key; what belongs to others is left out.
std::string BelowKey(const std::string& sections, const std::string& key)
{
    std::string below = ExportHeading;
    bool machines = false;
    for (std::size_t at = 0; at < sections.size();) {
        const std::size_t end = std::min(sections.find('\n', at), sections.size());
        std::string line = sections.substr(at, end - at);
        at = end + 1;
        if (line.ends_with('\r'))
            line.pop_back();
        if (line.starts_with('['))
            machines = line.starts_with(Machine);
        if (line.starts_with(Machine))
            line.replace(0, Machine.size(), "[HKEY_CURRENT_USER\\" + key);
        if (machines)
            below += line + "\r\n";
    }
    return below;
}

void WriteWide(const std::filesystem::path& path, const std::string& text)
{
    const std::wstring wide = L'\xFEFF' + Wide(text);
    std::ofstream(path, std::ios::binary)
        .write(reinterpret_cast<const char*>(wide.data()), static_cast<std::streamsize>(wide.size() * sizeof(wchar_t)));
}

/// The system's own reader of exports.
void Import(const std::filesystem::path& path)
{
    std::wstring line = L"reg.exe import \"" + path.wstring() + L'"';
    STARTUPINFOW startup{};
    startup.cb = sizeof startup;
    PROCESS_INFORMATION made{};
    DWORD code = 1;
    if (!CreateProcessW(nullptr, line.data(), nullptr, nullptr, FALSE, CREATE_NO_WINDOW, nullptr, nullptr, &startup,
                        &made))
        throw std::runtime_error("reg.exe does not start");
    WaitForSingleObject(made.hProcess, INFINITE);
    GetExitCodeProcess(made.hProcess, &code);
    CloseHandle(made.hThread);
    CloseHandle(made.hProcess);
    if (code != 0)
        throw std::runtime_error("the settings cannot be imported from " + ToUtf8(path));
}

}  // namespace

World::World(const ScratchFolder& scratch, const std::string& settings)
    : Folder(scratch.Path()), Store("Software\\" + scratch.Path().filename().string())
{
    UseInsteadOfMachine(Wide(Store));
    SetEnvironmentVariableW(WorldVariable, Wide(Store).c_str());
    Add(settings);
}

World::~World()
{
    RegOverridePredefKey(HKEY_LOCAL_MACHINE, nullptr);
    RegDeleteTreeW(HKEY_CURRENT_USER, Wide(Store).c_str());
}

void World::Add(const std::string& sections) const
{
    const std::filesystem::path file = Folder / "registry.reg";
    WriteWide(file, BelowKey(sections, Store));
    Import(file);
}

std::filesystem::path World::PlaceLog(const std::u16string& name) const
{
    std::filesystem::path log = Folder / "drive" / std::filesystem::path(name).relative_path();
    std::filesystem::create_directories(log.parent_path());
    Add(LogSection(log));
    return log;
}

void JoinWorld()
{
    wchar_t path[MAX_PATH];
    const DWORD units = GetEnvironmentVariableW(WorldVariable, path, MAX_PATH);
    if (units == 0 || units >= MAX_PATH)
        throw std::runtime_error("this process was not started in a world");
    UseInsteadOfMachine(path);
}

}  // namespace tools
