// Waits for changes of a log's folder, and for the wish to end the program.
#pragma once

#include <chrono>
#include <memory>
#include <string>

namespace tool::platform {

/// From its construction on, an interrupt (Ctrl+C) or a request to end the program is noticed here, once. The next one
/// ends the program as usual.
class Changes {
public:
    /// @param folder may be missing, and may come later
    static std::unique_ptr<Changes> Watch(const std::string& folder);
    virtual ~Changes() = default;

    /// Waits until something in the folder may have changed, at most for `time`. Any file counts, and a change may be
    /// missed, so the caller checks what it waits for.
    /// @return false if the program is to end
    virtual bool Wait(std::chrono::milliseconds time) = 0;
};

}  // namespace tool::platform
