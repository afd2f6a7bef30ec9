// A process that this one started: waits for it, kills it, stops it.
//
//     Process process(program, {"--write", "App.log"});
//     process.Kill();
#pragma once

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

namespace testkit {

/// Killed by the destructor if it still runs.
class Process {
public:
    /// How a program starts.
    struct Streams {
        std::intptr_t Input = -1;    // standard input, an end of a Pipe; -1: that of this process
        bool DiscardOutput = false;  // standard output is discarded
    };

    /// Starts a program. No argument has a quotation mark or ends with a backslash.
    /// @throws std::system_error
    Process(const std::filesystem::path& program, const std::vector<std::string>& arguments, const Streams& streams);
    explicit Process(const std::filesystem::path& program, const std::vector<std::string>& arguments = {})
        : Process(program, arguments, Streams())
    {
    }
    Process(Process&& other) noexcept;
    Process& operator=(Process&&) = delete;
    ~Process();

    std::uint32_t id() const { return Id; }

    /// Whether Wait or Kill has been called.
    bool IsOver() const { return Handle == NoHandle; }

    /// Whether the process has not ended yet.
    bool IsRunning() const;

    /// Waits for the end. @return the exit status; on Linux minus the signal that ended the process.
    int Wait();

    /// Ends the process at any point of its work, and waits for the end.
    int Kill();

    /// A stopped process keeps all it has, and does nothing until it continues.
    void Stop() const;
    void Continue() const;

protected:
    static constexpr std::intptr_t NoHandle = -1;

    /// Takes over a process that has been started. @param handle the handle on Windows, the id on Linux
    Process(std::intptr_t handle, std::uint32_t id) : Handle(handle), Id(id) {}

private:
    std::intptr_t Handle;
    std::uint32_t Id;
};

}  // namespace testkit
