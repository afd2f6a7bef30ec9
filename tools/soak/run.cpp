// Runs the generations of a mode and checks what each of them wrote.
#include "soak/run.h"

#include "soak/damage.h"

#include "testkit/file_content.h"
#include "testkit/paths.h"
#include "testkit/settings_text.h"

#include <exception>
#include <fstream>
#include <string_view>

namespace soak {
namespace {

constexpr std::string_view OldContent = "left by an earlier family";

std::uint64_t HashOf(const std::filesystem::path& path)
{
    std::ifstream file(path, std::ios::binary);
    std::string block(1U << 20U, '\0');
    std::uint64_t hash = 0;
    do {
        file.read(block.data(), static_cast<std::streamsize>(block.size()));
        const std::string_view part(block.data(), static_cast<std::size_t>(file.gcount()));
        hash = hash * 1099511628211U + std::hash<std::string_view>()(part);
    } while (file);
    return hash;
}

std::string Hexadecimal(std::uint32_t code)
{
    char text[16];
    std::snprintf(text, sizeof text, "0x%08X", static_cast<unsigned>(code));
    return text;
}

}  // namespace

Run::Run(const NamedMode& mode, const Options& options)
    : Name(mode.Name), Config(options), Settings(Folder), Log(Folder / "App.log"), Old(Folder / "Previous App.log"),
      Reports(Folder / "reports", options.AllProcesses(), options.Threads + 1), Manner(mode.Make()),
      Chance(options.Seed), Limit(std::chrono::steady_clock::now() + std::chrono::seconds(options.Seconds)),
      Zone("TZ", "UTC")
{
    Settings.Set(testkit::LogSection(testkit::ToUtf8(Log)));
    testkit::WriteFile(Log, OldContent);
    FormerHash = HashOf(Log);
}

const Verdict& Run::Execute()
try {
    Manner->Begin(*this);
    for (Generation = 0; Generation < Config.Generations; ++Generation)
        RunGeneration();
    if (Manner->rules().NeedsDisturbances)
        Found.Faults["idle"] += Found.Counts["disturbances"] == 0;
    AddReports();
    return Found;
} catch (const std::exception& failure) {
    AddReports();
    Found.AddFault("broken", failure.what());
    return Found;
}

void Run::AddReports()
{
    for (unsigned process = 0; process < Config.AllProcesses(); ++process) {
        for (unsigned thread = 0; thread <= Config.Threads; ++thread) {
            const testkit::WriterReport& report = Reports.At(process, thread);
            Found.Counts["calls that timed out (0x80040302) and were tried again"] += report.Timeouts;
            if (report.Failures != 0)
                Found.Counts["other failures, tried again, last " + Hexadecimal(report.LastFailure)] += report.Failures;
        }
    }
}

void Run::RunGeneration()
{
    Family family(*this, Generation * Config.ProcessesOfGeneration());
    const bool isKilled = Manner->rules().KillsFamilies && Generation % 2 == 1;
    family.Open();
    if (isKilled)
        family.KillAll();
    else
        family.WriteAll();
    family.End();
    Damage(Config.Control, Manner->Files(*this).back(), Old);

    const std::uint64_t before = Found.Written;
    LogCheck check(Reports, family.writers(), Config.Seed, Manner->rules(), Found);
    for (const std::filesystem::path& file : Manner->Files(*this))
        check.Read(file);
    check.Close();
    if (!isKilled && Found.Written - before < family.Total())
        Found.AddFault("unwritten", "generation " + std::to_string(Generation));
    CheckRollover();
    Manner->Check(*this);
}

/// The log of the former generation was moved aside, and nothing else.
void Run::CheckRollover()
{
    Found.Faults["old file"] += 0;
    if (!std::filesystem::exists(Old) || HashOf(Old) != FormerHash)
        Found.AddFault("old file", "generation " + std::to_string(Generation));
    if (Generation + 1 < Config.Generations)
        FormerHash = HashOf(Log);
}

}  // namespace soak
