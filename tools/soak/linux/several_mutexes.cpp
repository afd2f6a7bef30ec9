// The modes "spellings" and "private-runtime": several mutexes guard one file. That may cost order, but no record.
#include "soak/linux/platform_modes.h"
#include "soak/run.h"

#include "testkit/file_content.h"
#include "testkit/settings_text.h"

#include <optional>

namespace soak {
namespace {

class SeveralMutexes : public Mode {
public:
    Rules rules() const override { return {.HasOneMutex = false}; }
    void SetDefaults(Options& options) const override
    {
        // Many generations, since the groups also compete for the move of the old file.
        options.Records = 3125;
        options.Kills = 20;
        options.Generations = 10;
    }
    std::vector<Control> controls() const override
    {
        return {{"skip", "lost"}, {"overwrite", "torn"}, {"repeat", "duplicated"}};
    }

protected:
    std::optional<testkit::EnvironmentVariable> Changed;
};

class Spellings final : public SeveralMutexes {
    void Begin(Run& run) override
    {
        const std::string log = testkit::LogSection((run.Folder / ".//App.log").string());
        testkit::WriteFile(run.Folder / "other.reg", std::string(testkit::ExportHeading) + log);
    }
    void BeforeStart(Run& run, unsigned slot) override
    {
        Changed.reset();
        if (slot % 2 == 1)
            Changed.emplace("VELTRIX_REGISTRY", (run.Folder / "other.reg").string());
    }
};

class PrivateRuntime final : public SeveralMutexes {
    void BeforeStart(Run& run, unsigned slot) override
    {
        constexpr unsigned groups = 3;
        const std::filesystem::path folder = run.Folder / ("runtime" + std::to_string(slot % groups));
        std::filesystem::create_directories(folder);
        Changed.reset();
        Changed.emplace("VELTRIX_RUNTIME", folder.string());
    }
};

}  // namespace

std::unique_ptr<Mode> MakeSpellings()
{
    return std::make_unique<Spellings>();
}

std::unique_ptr<Mode> MakePrivateRuntime()
{
    return std::make_unique<PrivateRuntime>();
}

}  // namespace soak
