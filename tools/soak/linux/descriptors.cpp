// The modes "closed-streams" and "close-all": writers whose descriptors are closed before or while they log.
#include "soak/linux/platform_modes.h"
#include "soak/linux/writer_process.h"
#include "soak/run.h"

#include "testkit/file_content.h"

#include <atomic>
#include <chrono>
#include <cstdio>
#include <mutex>
#include <random>
#include <stdexcept>
#include <thread>

#include <fcntl.h>
#include <unistd.h>

namespace soak {
namespace {

/// A writer without a pipe, and a thread of it that disturbs while the others write.
class WithoutStreams : public Mode {
public:
    void BeforeEnd(Run& run) override { MakeEndFile(run.Folder.path()); }
    void AllIsWritten() override
    {
        Ends = true;
        if (Disturber.joinable())
            Disturber.join();
    }
    void WaitToEnd(const WriterOrder& order) override { WaitForEndFile(order.Folder); }

protected:
    std::atomic<bool> Ends{false};
    std::thread Disturber;
};

/// Without 0, 1 and 2 the first files that a process opens get these numbers, and receive what the process prints.
class ClosedStreams final : public WithoutStreams {
public:
    void SetDefaults(Options& options) const override { options.Kills = 200; }
    std::vector<Control> controls() const override { return {{"print-to-log", "foreign"}, {"skip", "lost"}}; }

    /// Runs the program again without streams: files that it opened at its start must not have kept the numbers busy.
    void EnterWriter(const WriterOrder& order) override
    {
        DieWithParent();
        if (fcntl(STDERR_FILENO, F_GETFD) < 0)
            return;
        const std::vector<std::string> words = order.Words();
        std::vector<char*> pointers = {const_cast<char*>("soak")};
        for (const std::string& word : words)
            pointers.push_back(const_cast<char*>(word.c_str()));
        pointers.push_back(nullptr);
        for (const int stream : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO})
            close(stream);
        execv("/proc/self/exe", pointers.data());
        _exit(EXIT_FAILURE);
    }

    void LogIsOpen(const WriterOrder& order, utilities::CLog&) override
    {
        if (order.Control == "print-to-log")
            dup2(DescriptorOf(order.Log()), STDOUT_FILENO);
        Disturber = std::thread([this] {
            while (!Ends) {
                std::printf("%s", Stray.data());
                std::fflush(stdout);
                std::fprintf(stderr, "%s", Stray.data());
                for (int stream = 0; stream < 3; ++stream)
                    static_cast<void>(!write(stream, Stray.data(), Stray.size()));
                std::this_thread::sleep_for(std::chrono::microseconds(200));
            }
        });
    }
};

/// A daemon closes all descriptors, whatever they are, and opens its own files. No thread is in a call of the log then:
/// a program that closes the files of a call that runs cannot expect its result.
class CloseAll final : public WithoutStreams {
public:
    Rules rules() const override
    {
        // A process without descriptors is no user of the mutex until its next second, and may end before.
        return {.BearsFailures = true, .HasOneMutex = false, .ClosesLog = false, .NeedsDisturbances = true};
    }
    void SetDefaults(Options& options) const override
    {
        options.Pause = 200;
        options.Kills = 60;
    }
    std::vector<Control> controls() const override { return {{"steal", "own file"}}; }

    void EnterWriter(const WriterOrder&) override { DieWithParent(); }
    std::shared_lock<std::shared_mutex> HoldDuringCall() override { return std::shared_lock(Calls); }

    void LogIsOpen(const WriterOrder& order, utilities::CLog&) override
    {
        // The holder logs nothing, so it would not notice that it is no user of the mutex any more.
        if (order.IsHolder)
            return;
        const int stolen = order.Control == "steal" ? DescriptorOf(order.Log()) : -1;
        Disturber = std::thread([this, order, stolen] {
            std::mt19937 chance(order.Seed + order.Process);
            for (unsigned round = 0; !Ends; ++round) {
                std::this_thread::sleep_for(std::chrono::milliseconds(chance() % 1500));
                const std::unique_lock guard(Calls);
                CloseDescriptors(round % 3);
                OpenOwnFiles(order, round, stolen);
            }
        });
    }

    void Check(Run& run) override
    {
        run.Found.Faults["own file"] += 0;
        for (const auto& entry : std::filesystem::directory_iterator(run.Folder.path())) {
            const std::string name = entry.path().filename().string();
            if (!name.starts_with("own-"))
                continue;
            ++run.Found.Counts["disturbances"];
            const std::string content = testkit::ReadFile(entry.path());
            if (!content.empty() && content != OwnText)  // empty: killed before it wrote
                run.Found.AddFault("own file", name + " has " + std::to_string(content.size()) + " bytes");
        }
    }

private:
    static constexpr std::string_view OwnText = "a file of the program\n";

    static void CloseDescriptors(unsigned way)
    {
        const unsigned first = way == 0 ? STDERR_FILENO + 1 : 0;
        if (way != 2) {
            close_range(first, ~0U, 0);
            return;
        }
        const auto end = static_cast<int>(sysconf(_SC_OPEN_MAX));
        for (int file = 0; file < std::min(end, 4096); ++file)
            close(file);
    }

    /// @param stolen  the number that one of the files gets; -1: none
    static void OpenOwnFiles(const WriterOrder& order, unsigned round, int stolen)
    {
        for (unsigned i = 0; i < 6; ++i) {
            const std::string name = "own-" + std::to_string(order.Process) + "-" + std::to_string(round * 6 + i);
            const int file = open((order.Folder / name).c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600);
            if (file < 0 || write(file, OwnText.data(), OwnText.size()) < 0)
                std::abort();
            if (stolen >= 0)
                dup2(file, stolen);
        }
    }

    std::shared_mutex Calls;
};

}  // namespace

std::unique_ptr<Mode> MakeClosedStreams()
{
    return std::make_unique<ClosedStreams>();
}

std::unique_ptr<Mode> MakeCloseAll()
{
    return std::make_unique<CloseAll>();
}

}  // namespace soak
