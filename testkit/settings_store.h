// The settings store of one test or run. While it exists, this process reads its settings from it instead of the
// machine's, and so do the processes that it starts.
//
//     const ScratchFolder folder;
//     const SettingsStore store(folder);
//     store.Set(LogSection(ToUtf8(folder / "App.log")));
#pragma once

#include "testkit/scratch_folder.h"

#include <filesystem>
#include <memory>
#include <string>
#include <string_view>

namespace testkit {

/// On Linux a file in the folder, which also holds the named mutexes. On Windows a key of this user.
class SettingsStore {
public:
    /// Makes an empty store. With a folder that another process made, uses that process's store.
    explicit SettingsStore(const ScratchFolder& folder);
    SettingsStore(const SettingsStore&) = delete;
    SettingsStore& operator=(const SettingsStore&) = delete;
    ~SettingsStore();

    /// Replaces all settings. @param sections the content of an export; if it starts with a key, the heading is added.
    void Set(std::string_view sections) const;

    /// Adds sections, without the heading of an export.
    void Add(std::string_view sections) const;

    /// Redirects the log that the settings name into the folder, so that a run writes no file of the machine.
    /// @param path the setting's value. @return where the log is then.
    std::filesystem::path PlaceLog(const std::u16string& path) const;

    /// The path of the file, or the name of the key.
    const std::string& location() const { return Location; }

private:
    struct Platform;

    const std::filesystem::path Folder;
    const std::string Location;
    const std::unique_ptr<Platform> Inner;
};

/// In a process that a process with a settings store started: uses that store. To be called before the first setting
/// is read.
void JoinSettingsStore();

}  // namespace testkit
