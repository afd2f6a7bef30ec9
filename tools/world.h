// The settings of a run, and where its log lies: a machine that no other run sees.
#pragma once

#include "family.h"

#include <filesystem>
#include <string>

namespace tools {

inline constexpr char ExportHeading[] = "Windows Registry Editor Version 5.00\r\n\r\n";

/// Settings that this process has from now on instead of the machine's, and that every process which it starts takes
/// over by JoinWorld. On Linux the named mutexes are the run's own as well.
class World {
public:
    /// `settings`: an export of the registry in UTF-8.
    World(const ScratchFolder& scratch, const std::string& settings);
    World(const World&) = delete;
    World& operator=(const World&) = delete;
    ~World();

    /// Adds further sections, without the heading of an export.
    void Add(const std::string& sections) const;

    /// Takes the log that the settings name into the scratch folder: there lies its drive, or whatever it takes to
    /// write no file of the machine. Gives the path that the log has then.
    std::filesystem::path PlaceLog(const std::u16string& name) const;

private:
    const std::filesystem::path Folder;
    const std::string Store;  // a file, or a key
};

/// In a process that was started in a world: makes its settings those of that world.
void JoinWorld();

/// The section that names the log at `path`.
std::string LogSection(const std::filesystem::path& path);

}  // namespace tools
