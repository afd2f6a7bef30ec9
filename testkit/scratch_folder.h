// A folder of one test or run, removed with its object.
//
//     const ScratchFolder folder;   WriteFile(folder / "App.log", "old");
#pragma once

#include <filesystem>
#include <string>

namespace testkit {

/// Only this account can use the folder. In a process that a TestProcess started, the object is the folder of the test
/// that started it.
class ScratchFolder {
public:
    ScratchFolder() : ScratchFolder(std::filesystem::temp_directory_path()) {}
    explicit ScratchFolder(const std::filesystem::path& parent);
    ScratchFolder(const ScratchFolder&) = delete;
    ScratchFolder& operator=(const ScratchFolder&) = delete;
    ~ScratchFolder();

    const std::filesystem::path& path() const { return Folder; }
    std::filesystem::path operator/(const std::string& name) const { return Folder / name; }

    /// Whether another process made the folder.
    bool IsJoined() const { return Joined; }

    /// The folder stays when the object is destroyed.
    void Keep() { Kept = true; }

    /// Names the folder to a process whose first folder is to be the same. @see TestProcess
    static constexpr char Variable[] = "TESSMARU_TESTKIT_FOLDER";

private:
    std::filesystem::path Folder;
    bool Joined = false;
    bool Kept = false;
};

}  // namespace testkit
