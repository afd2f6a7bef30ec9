// A gate at which processes or threads wait for each other.
//
//     const Gate opened(folder / "opened");   // in another process: Gate(folder / "opened").Open();
//     opened.Pass();
#pragma once

#include <cstdint>
#include <filesystem>

namespace testkit {

/// Closed at first. Each Open lets one Pass through. All gates of one path are the same gate; it exists as long as one
/// of the objects does, so a test makes it before it starts the others.
class Gate {
public:
    explicit Gate(const std::filesystem::path& path);
    Gate(const Gate&) = delete;
    Gate& operator=(const Gate&) = delete;
    ~Gate();

    void Open() const;

    /// Waits until the gate is open.
    void Pass() const;

private:
    std::intptr_t Handle;
};

}  // namespace testkit
