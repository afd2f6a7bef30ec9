// The settings store on Windows: a key of this user that replaces HKEY_LOCAL_MACHINE in the process.
#include "testkit/settings_store.h"

#include "testkit/environment_variable.h"
#include "testkit/paths.h"
#include "testkit/settings_text.h"
#include "testkit/windows/registry_export.h"
#include "testkit/windows/wide.h"

#include <algorithm>
#include <cstdlib>
#include <stdexcept>

namespace testkit {
namespace {

constexpr const char* StoreVariable = "TESSMARU_TESTKIT_SETTINGS";
constexpr std::string_view Hive = "HKEY_LOCAL_MACHINE";

HKEY CreateKey(HKEY parent, const std::string& path)
{
    HKEY key = nullptr;
    if (RegCreateKeyExW(parent, WideFromUtf8(path).c_str(), 0, nullptr, 0, KEY_ALL_ACCESS, nullptr, &key, nullptr) != 0)
        throw std::runtime_error("cannot make the key " + path);
    return key;
}

/// Opens or makes the key of a store, and replaces the machine's settings by it.
HKEY UseInsteadOfMachine(const std::string& location)
{
    const HKEY key = CreateKey(HKEY_CURRENT_USER, location);
    if (RegOverridePredefKey(HKEY_LOCAL_MACHINE, key) != 0)
        throw std::runtime_error("cannot replace the machine's settings");
    return key;
}

}  // namespace

struct SettingsStore::Platform {
    const EnvironmentVariable Location;
    const HKEY Key;
    const bool IsJoined;
};

SettingsStore::SettingsStore(const ScratchFolder& folder)
    : Folder(folder.path()), Location("Software\\" + folder.path().filename().string()),
      Inner(new Platform{{StoreVariable, Location}, UseInsteadOfMachine(Location), folder.IsJoined()})
{
}

SettingsStore::~SettingsStore()
{
    RegOverridePredefKey(HKEY_LOCAL_MACHINE, nullptr);
    RegCloseKey(Inner->Key);
    if (!Inner->IsJoined)
        RegDeleteTreeW(HKEY_CURRENT_USER, WideFromUtf8(Location).c_str());
}

void SettingsStore::Set(std::string_view sections) const
{
    RegDeleteTreeW(Inner->Key, nullptr);
    Add(sections);
}

void SettingsStore::Add(std::string_view sections) const
{
    for (const ExportedValue& value : ReadExport(sections)) {
        // Settings of other hives stay the machine's.
        if (!value.Key.starts_with(Hive))
            continue;
        const HKEY key = CreateKey(Inner->Key, value.Key.substr(std::min(Hive.size() + 1, value.Key.size())));
        const LSTATUS result = value.IsKey ? 0
                                           : RegSetValueExW(key, WideFromUtf8(value.Name).c_str(), 0, value.Type,
                                                            reinterpret_cast<const BYTE*>(value.Data.data()),
                                                            static_cast<DWORD>(value.Data.size()));
        RegCloseKey(key);
        if (result != 0)
            throw std::runtime_error("cannot set the value " + value.Name);
    }
}

std::filesystem::path SettingsStore::PlaceLog(const std::u16string& path) const
{
    std::filesystem::path log = Folder / "drive" / std::filesystem::path(path).relative_path();
    std::filesystem::create_directories(log.parent_path());
    Add(LogSection(ToUtf8(log)));
    return log;
}

void JoinSettingsStore()
{
    const char* const location = std::getenv(StoreVariable);
    if (location == nullptr)
        throw std::runtime_error("no settings store to join");
    RegCloseKey(UseInsteadOfMachine(location));
}

}  // namespace testkit
