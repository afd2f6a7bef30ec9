// The mode "hostile": another account disturbs the mutex of the log in every way that it can.
//
// As root, the attacker drops to another account. The log is in a folder that it cannot enter, the mutexes are in one
// with the sticky bit, as /dev/shm. Now and then the attacker becomes the owner of the mutex's file, as if it had
// created the file first. Without root it has the same account, so it can also remove every file of a mutex.
#include "soak/linux/attacker.h"
#include "soak/linux/platform_modes.h"
#include "soak/run.h"

#include "testkit/file_content.h"
#include "testkit/mapped_file.h"
#include "testkit/process.h"
#include "testkit/program.h"

#include <atomic>
#include <cstdio>
#include <optional>

#include <sys/stat.h>
#include <unistd.h>

namespace soak {
namespace {

class Hostile final : public Mode {
public:
    Rules rules() const override
    {
        return {.BearsFailures = true, .HasOneMutex = false, .ClosesLog = false, .NeedsDisturbances = true};
    }
    void SetDefaults(Options& options) const override
    {
        options.Pause = 500;
        options.Kills = 100;
    }
    std::vector<Control> controls() const override { return {{"zeros", "zeros"}, {"peace", "idle"}}; }

    void Begin(Run& run) override
    {
        if (geteuid() != 0)
            std::puts("hostile: NOT ROOT: the attacker has the account of the writers");
        Folder.emplace();
        chmod(Folder->path().c_str(), 01777);
        Runtime.emplace("VELTRIX_RUNTIME", Folder->path().string());
        testkit::WriteFile(Victim(run), VictimText);
    }

    void Tick(Run& run) override
    {
        if (run.Config.Control == "peace" || !std::filesystem::exists(run.Old))
            return;
        if (!Process) {
            const AttackOrder order{Folder->path(), run.Folder / "attacks", Victim(run), run.Config.Seed};
            Process.emplace(testkit::ThisProgram(), order.Words());
        }
        if (geteuid() != 0 || run.Chance() % 200 != 0)
            return;
        for (const auto& entry : std::filesystem::directory_iterator(Folder->path()))
            static_cast<void>(!lchown(entry.path().c_str(), AttackerAccount, AttackerAccount));
    }

    void BeforeEnd(Run& run) override
    {
        if (!Process)
            return;
        if (!Process->IsRunning())
            run.Found.AddFault("broken", "the attacker has ended");
        Process->Kill();
    }

    void Check(Run& run) override
    {
        const testkit::SharedValue<std::atomic<std::uint32_t>> attacks(run.Folder / "attacks");
        run.Found.Counts["disturbances"] = *attacks;
        run.Found.Faults["victim"] = testkit::ReadFile(Victim(run)) != VictimText;
    }

private:
    static constexpr std::string_view VictimText = "a file that a link at the path of the mutex leads to";

    static std::filesystem::path Victim(const Run& run) { return run.Folder / "victim"; }

    std::optional<testkit::ScratchFolder> Folder;  // of the mutexes
    std::optional<testkit::EnvironmentVariable> Runtime;
    std::optional<testkit::Process> Process;
};

}  // namespace

std::unique_ptr<Mode> MakeHostile()
{
    return std::make_unique<Hostile>();
}

}  // namespace soak
