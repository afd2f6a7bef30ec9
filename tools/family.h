// A family of processes that run one program and share one log, in a folder of their own.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

namespace tools {

/// A folder of this run alone, gone with the object.
class ScratchFolder {
public:
    explicit ScratchFolder(const std::filesystem::path& parent = std::filesystem::temp_directory_path());
    ScratchFolder(const ScratchFolder&) = delete;
    ScratchFolder& operator=(const ScratchFolder&) = delete;
    ~ScratchFolder();

    const std::filesystem::path& Path() const { return Folder; }

    /// The folder stays when the object goes.
    void Keep() { Kept = true; }

    std::filesystem::path operator/(const std::string& name) const { return Folder / name; }

private:
    std::filesystem::path Folder;
    bool Kept = false;
};

/// Maps `size` bytes of the file at `path`, which is made, and filled with zeros, where it is not there. Every
/// process that maps it sees the same bytes.
void* MapFile(const std::filesystem::path& path, std::size_t size);
void UnmapFile(void* memory, std::size_t size);

/// What one thread of one process reports to the process that checks it. A report outlives its process.
struct Report {
    std::atomic<std::uint32_t> Goal;         // records to write, set before the process starts
    std::atomic<std::uint32_t> Written;      // number of the last record whose call gave 0
    std::atomic<std::uint32_t> Timeouts;     // calls that gave 0x80040302
    std::atomic<std::uint32_t> Failures;     // calls that gave any other code
    std::atomic<std::uint32_t> LastFailure;  // the last of these codes
    std::atomic<std::uint32_t> Opened;       // 1 once the process has its log open
};

/// The reports of all threads of all processes, in a file that they map.
class Board {
public:
    /// Opens the board at `path`, or makes an empty one. Every process names the same sizes.
    Board(const std::filesystem::path& path, unsigned processes, unsigned threads);
    Board(const Board&) = delete;
    Board& operator=(const Board&) = delete;
    ~Board();

    /// @throws std::out_of_range
    Report& At(unsigned process, unsigned thread) const;

    unsigned Threads() const { return ThreadCount; }

private:
    unsigned ProcessCount;
    unsigned ThreadCount;
    Report* Reports;
};

/// A path as UTF-8, and back: the narrow text of a path of its own may be another on Windows.
std::string ToUtf8(const std::filesystem::path& path);
std::filesystem::path FromUtf8(const std::string& text);

/// The path of the program that runs.
std::filesystem::path ThisProgram();

/// What stands behind the program's name on its command line, in UTF-8.
std::vector<std::string> Arguments(int count, char** arguments);

/// Processes of one program, as a rule this one with other arguments. Standard input of each is a pipe that the
/// family closes when they may leave: so none leaves early, and none outlives a family that died.
class Family {
public:
    explicit Family(const std::filesystem::path& program = ThisProgram());
    Family(const Family&) = delete;
    Family& operator=(const Family&) = delete;

    /// Ends what still runs.
    ~Family();

    /// Gives the process's id. No argument has a quotation mark or ends with a backslash.
    std::uint32_t Start(const std::vector<std::string>& arguments);

    /// Ends a process at once, wherever it is, and waits for the end.
    void Kill(std::uint32_t process);

    /// A stopped process keeps what it has, until it may continue.
    void Stop(std::uint32_t process);
    void Continue(std::uint32_t process);

    /// Whether every process that was started and not killed is still there.
    bool AllRun() const;

    /// Lets all leave and waits for their ends. False if one ended with another code than 0.
    bool Leave();

private:
    struct Inner;
    std::unique_ptr<Inner> Held;
};

/// In a member of a family: waits until it may leave.
void WaitToLeave();

}  // namespace tools
