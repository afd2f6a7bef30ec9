// The settings store on Linux: a file, which environment variables name to this process and to those that it starts.
#include "testkit/settings_store.h"

#include "testkit/environment_variable.h"
#include "testkit/file_content.h"
#include "testkit/settings_text.h"

#include <algorithm>

namespace testkit {

struct SettingsStore::Platform {
    const EnvironmentVariable Store;
    const EnvironmentVariable Runtime;
};

SettingsStore::SettingsStore(const ScratchFolder& folder)
    : Folder(folder.path()), Location((folder / "registry.reg").string()),
      Inner(new Platform{{"VELTRIX_REGISTRY", Location}, {"VELTRIX_RUNTIME", Folder.string()}})
{
}

SettingsStore::~SettingsStore() = default;

void SettingsStore::Set(std::string_view sections) const
{
    const bool hasHeading = !sections.empty() && !sections.starts_with('[');
    WriteFile(Location + ".new", std::string(hasHeading ? "" : ExportHeading) + std::string(sections));
    std::filesystem::rename(Location + ".new", Location);
}

void SettingsStore::Add(std::string_view sections) const
{
    Set(ReadFile(Location) + "\r\n" + std::string(sections));
}

std::filesystem::path SettingsStore::PlaceLog(const std::u16string& path) const
{
    std::u16string local = path;
    std::replace(local.begin(), local.end(), u'\\', u'/');
    if (local.size() < 3 || local[1] != u':')
        return local;
    // The drive becomes a folder: this needs no root, and two runs do not disturb each other.
    const std::filesystem::path drive = Folder / "drive";
    const std::filesystem::path log = drive / std::filesystem::path(local.substr(3));
    std::filesystem::create_directories(log.parent_path());
    Add(Section("HKEY_LOCAL_MACHINE\\SYSTEM\\CurrentControlSet\\Control\\Session Manager\\DOS Devices",
                TextValue(std::string(1, static_cast<char>(local[0])) + ":", drive.string())));
    return log;
}

void JoinSettingsStore() {}

}  // namespace testkit
