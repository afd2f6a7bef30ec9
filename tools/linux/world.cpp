// The store is a file, which environment variables name to this process and to those that it starts.
#include "tools/world.h"

#include <algorithm>
#include <cstdlib>
#include <fstream>

namespace tools {

World::World(const ScratchFolder& scratch, const std::string& settings)
    : Folder(scratch.Path()), Store((scratch / "registry.reg").string())
{
    std::ofstream(Store, std::ios::binary) << settings;
    setenv("VELTRIX_REGISTRY", Store.c_str(), 1);
    setenv("VELTRIX_RUNTIME", Folder.c_str(), 1);
}

World::~World() = default;

void World::Add(const std::string& sections) const
{
    std::ofstream(Store, std::ios::binary | std::ios::app) << "\r\n" << sections;
}

std::filesystem::path World::PlaceLog(const std::u16string& name) const
{
    std::u16string path = name;
    std::replace(path.begin(), path.end(), u'\\', u'/');
    if (path.size() < 3 || path[1] != u':')
        return path;
    // The drive becomes a folder, so the settings work as they are, without root, and two runs do not meet.
    const std::filesystem::path drive = Folder / "drive";
    const std::filesystem::path log = drive / std::filesystem::path(path.substr(3));
    std::filesystem::create_directories(log.parent_path());
    Add("[HKEY_LOCAL_MACHINE\\SYSTEM\\CurrentControlSet\\Control\\Session Manager\\DOS Devices]\r\n\"" +
        std::string(1, static_cast<char>(path[0])) + ":\"=\"" + drive.string() + "\"\r\n");
    return log;
}

void JoinWorld() {}

}  // namespace tools
