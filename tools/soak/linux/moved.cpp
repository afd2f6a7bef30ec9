// The mode "moved": the log is moved away, as a rotation of logs does, or removed, again and again.
//
// A writer notices that at its first record of the next second. Records of the same second still go to the file that
// was moved; a later one there is a fault. This is compared by the time stamps, so a slow machine does not matter.
#include "soak/linux/platform_modes.h"
#include "soak/run.h"

#include "soak/log_lines.h"
#include "testkit/utf16.h"

#include <chrono>
#include <ctime>
#include <fstream>

#include <fcntl.h>
#include <unistd.h>

namespace soak {
namespace {

using Clock = std::chrono::steady_clock;

class Moved final : public Mode {
public:
    ~Moved() override
    {
        for (const Taken& taken : Aside)
            close(taken.Descriptor);
    }

    Rules rules() const override { return {.NeedsDisturbances = true}; }
    void SetDefaults(Options& options) const override
    {
        options.Pause = 1000;
        options.Kills = 60;
    }
    std::vector<Control> controls() const override { return {{"copytruncate", "lost"}, {"straggler", "late"}}; }

    void Tick(Run& run) override
    {
        if (Clock::now() < Next || !std::filesystem::exists(run.Old))
            return;
        Next = Clock::now() + std::chrono::milliseconds(std::uniform_int_distribution<int>(5, 120)(run.Chance));
        const int file = open(run.Log.c_str(), O_RDONLY | O_CLOEXEC);
        if (file < 0)
            return;
        const std::filesystem::path away = run.Folder / ("moved-" + std::to_string(Aside.size()));
        if (run.Config.Control == "copytruncate")
            std::filesystem::resize_file(run.Log, 0);
        else if (run.Chance() % 2 == 0)
            std::filesystem::rename(run.Log, away);
        else
            std::filesystem::remove(run.Log);
        const std::time_t now = std::chrono::system_clock::to_time_t(std::chrono::system_clock::now());
        char second[32] = {};
        std::strftime(second, sizeof second, "%F %T", std::gmtime(&now));
        Aside.push_back({file, second});
        ++run.Found.Counts["disturbances"];
    }

    void BeforeEnd(Run& run) override
    {
        if (run.Config.Control == "straggler" && !Aside.empty())
            std::ofstream(PathOf(Aside[0]), std::ios::app)
                << testkit::EncodeUtf16("2999-01-01 00:00:00.000 | late\r\n");
    }

    /// A removed file is read through its descriptor, and so is a moved one.
    std::vector<std::filesystem::path> Files(const Run& run) const override
    {
        std::vector<std::filesystem::path> files;
        if (run.Config.Control != "copytruncate") {
            for (const Taken& taken : Aside)
                files.push_back(PathOf(taken));
        }
        if (std::filesystem::exists(run.Log))
            files.push_back(run.Log);
        return files;
    }

    void Check(Run& run) override
    {
        run.Found.Faults["late"] += 0;
        if (run.Config.Control == "copytruncate")
            return;
        for (const Taken& taken : Aside) {
            ForEachLine(PathOf(taken), [&](const Line& line) {
                // The time stamp up to the second, which has the form of `Second`.
                const std::string stamp = ToUtf8(line.Text.substr(0, taken.Second.size()));
                if (stamp > taken.Second)
                    run.Found.AddFault("late", stamp + " in a file that was taken away at " + taken.Second);
            });
        }
    }

private:
    struct Taken {
        int Descriptor;
        std::string Second;
    };

    static std::filesystem::path PathOf(const Taken& taken)
    {
        return "/proc/self/fd/" + std::to_string(taken.Descriptor);
    }

    std::vector<Taken> Aside;
    Clock::time_point Next{};
};

}  // namespace

std::unique_ptr<Mode> MakeMoved()
{
    return std::make_unique<Moved>();
}

}  // namespace soak
