// The modes of every platform, and the list of all modes.
#include "soak/run.h"
#include "soak/writer.h"

#include "testkit/process_family.h"

#include <atomic>
#include <stdexcept>
#include <thread>

namespace soak {
namespace {

class Plain : public Mode {
public:
    void SetDefaults(Options& options) const override
    {
        options.Kills = 200;
        options.Stops = 2;
    }
    std::vector<Control> controls() const override
    {
        return {{"skip", "lost"},           {"repeat", "duplicated"}, {"swap", "misplaced"},     {"cut", "torn"},
                {"stranger", "unexpected"}, {"stamp", "disordered"},  {"truncate", "not closed"}};
    }
};

class LongRecords final : public Mode {
public:
    Rules rules() const override { return {.Texts = Lengths::toTheLimit}; }
    void SetDefaults(Options& options) const override { options.Kills = 200; }
    std::vector<Control> controls() const override { return {{"cut", "torn"}, {"overwrite", "lost"}}; }
};

/// Watches a file that is replaced again and again.
class Watcher {
public:
    explicit Watcher(const std::filesystem::path& path) : Thread([this, path] { Watch(path); }) {}
    Watcher(const Watcher&) = delete;
    Watcher& operator=(const Watcher&) = delete;
    ~Watcher()
    {
        Ends = true;
        Thread.join();
    }

    std::atomic<std::uint64_t> Checks{0};
    std::atomic<std::uint64_t> Missing{0};

private:
    void Watch(const std::filesystem::path& path)
    {
        bool wasThere = false;
        while (!Ends) {
            std::error_code ignored;
            const bool isMissing =
                std::filesystem::status(path, ignored).type() == std::filesystem::file_type::not_found;
            Missing += wasThere && isMissing;
            wasThere = wasThere || !isMissing;
            ++Checks;
            std::this_thread::sleep_for(std::chrono::microseconds(20));
        }
    }

    std::atomic<bool> Ends{false};
    std::thread Thread;  // last: it uses the others
};

/// Each generation moves the log of the former one aside, whether that ended or was killed as a whole.
class Rollover final : public Mode {
public:
    Rules rules() const override { return {.KillsFamilies = true}; }
    void SetDefaults(Options& options) const override
    {
        options.Processes = 4;
        options.Records = 250;
        options.Kills = 3;
        options.Generations = 350;
    }
    std::vector<Control> controls() const override
    {
        return {{"unlink", "missing"}, {"old", "old file"}, {"overwrite", "torn"}};
    }
    void Begin(Run& run) override { OldFile = std::make_unique<Watcher>(run.Old); }
    void BeforeEnd(Run& run) override
    {
        if (run.Config.Control != "unlink")
            return;
        std::filesystem::rename(run.Old, run.Folder / "taken away");
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
        std::filesystem::rename(run.Folder / "taken away", run.Old);
    }
    void Check(Run& run) override
    {
        run.Found.Counts["generations"] = run.Generation + 1;
        run.Found.Counts["checks that the old file exists"] = OldFile->Checks;
        run.Found.Faults["missing"] = OldFile->Missing;
    }

private:
    std::unique_ptr<Watcher> OldFile;
};

template <class Type>
NamedMode Named(const char* name, const char* about)
{
    return {name, about, [] { return std::make_unique<Type>(); }};
}

}  // namespace

std::vector<std::filesystem::path> Mode::Files(const Run& run) const
{
    return {run.Log};
}

void Mode::WaitToEnd(const WriterOrder&)
{
    testkit::WaitToEnd();
}

std::vector<NamedMode> AllModes()
{
    std::vector<NamedMode> modes = {
        Named<Plain>("plain", "writers are killed, replaced and stopped"),
        Named<LongRecords>("long-records", "most texts have more than 1000 units, some more than the log keeps"),
        Named<Rollover>("rollover", "the family starts and ends, or is killed, again and again"),
    };
    for (NamedMode& mode : PlatformModes())
        modes.push_back(std::move(mode));
    return modes;
}

NamedMode FindMode(const std::string& name)
{
    for (const NamedMode& mode : AllModes()) {
        if (mode.Name == name)
            return mode;
    }
    throw std::invalid_argument("unknown mode: " + name);
}

}  // namespace soak
