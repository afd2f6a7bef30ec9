// A writing process.
#pragma once

#include "soak/mode.h"

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

namespace soak {

/// What the process that runs the soak tells a writing process on its command line.
struct WriterOrder {
    std::string Mode;
    std::string Control;
    std::filesystem::path Folder;
    unsigned Processes = 0;
    unsigned Threads = 0;
    unsigned Process = 0;
    unsigned Seed = 0;
    unsigned Pause = 0;
    bool IsHolder = false;  // it writes nothing and keeps the log open

    std::vector<std::string> Words() const;
    /// @return no order if the words are none
    static std::optional<WriterOrder> Read(const std::vector<std::string>& words);

    std::filesystem::path Reports() const { return Folder / "reports"; }
    std::filesystem::path Log() const { return Folder / "App.log"; }
    /// The reports have one account more than writing threads, for records that a mode writes itself.
    unsigned Accounts() const { return Threads + 1; }
};

/// Writes the records of a process. @return the exit status
int Write(const WriterOrder& order);

}  // namespace soak
