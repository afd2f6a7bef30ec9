// Makes the state in which the disturbed process starts.
#include "machine.h"

#include "system_calls.h"
#include "testkit/file_content.h"
#include "testkit/program.h"
#include "testkit/settings_text.h"
#include "testkit/utf16.h"

#include <algorithm>
#include <map>
#include <stdexcept>
#include <thread>

namespace kill_points {
namespace {

using Clock = std::chrono::steady_clock;

template <class Condition>
bool WaitUntil(Condition condition)
{
    const auto end = Clock::now() + TimeLimit;
    while (!condition()) {
        if (Clock::now() > end)
            return false;
        std::this_thread::sleep_for(std::chrono::microseconds(200));
    }
    return true;
}

std::string EarlierLog(const std::string& name)
{
    return testkit::EncodeUtf16("2026-11-22 21:04:11.381 | 00001c2a | 00001c2a | INFO |        Names | " + name +
                                "\r\n");
}

std::optional<std::string> ReadIfThere(const std::filesystem::path& path)
{
    return std::filesystem::exists(path) ? std::optional(testkit::ReadFile(path)) : std::nullopt;
}

}  // namespace

Machine::Machine(const Scenario& scenario)
    : Kind(scenario), Settings(Folder), Runtime("VELTRIX_RUNTIME", (Folder / "run").string()), Memory(Folder.path())
{
    std::filesystem::create_directory(Folder / "run");
    std::filesystem::create_directory(Folder / "log");
    Settings.Set(testkit::LogSection((Folder / "log/App.log").string()));
}

void Machine::Prepare()
{
    if (Kind.HasOldLog) {
        testkit::WriteFile(Folder / "log/App.log", EarlierLog("old"));
        testkit::WriteFile(Folder / "log/Previous App.log", EarlierLog("older"));
    }
    if (Kind.HasHolder && !StartHolder())
        throw std::runtime_error("the holder does not open the log");
    if (Kind.HasDeadOwner)
        LeaveDeadOwner();
}

/// The number of the call with which the earlier process writes its long record. It is the same in all runs.
std::size_t Machine::FindLongWrite() const
{
    static std::map<const Scenario*, std::size_t> found;
    if (const auto known = found.find(&Kind); known != found.end())
        return known->second;
    const Course whole = Trace(Words(Earlier, {"--traced"}), {}, *Memory.Uncounted);
    const auto longWrite = std::find_if(whole.Calls.begin(), whole.Calls.end(), [](const SystemCall& call) {
        return IsWrite(call) && call.Arguments[2] > 1024;
    });
    if (longWrite == whole.Calls.end())
        throw std::runtime_error("the earlier process wrote no long record");
    return found[&Kind] = static_cast<std::size_t>(longWrite - whole.Calls.begin());
}

void Machine::LeaveDeadOwner() const
{
    const Course course = Trace(Words(Earlier, {"--traced"}), {{FindLongWrite(), Act::killInside}}, *Memory.Uncounted);
    if (course.How != Course::End::killed || NamesIn("run").size() != 1)
        throw std::runtime_error("the earlier process left no mutex");
}

bool Machine::StartHolder()
{
    HolderProcess.emplace(testkit::ThisProgram(), Words(Holder, {"--hold"}));
    return WaitUntil([this] { return Memory.Of(Holder).Opened != 0; }) && HolderReaches(1);
}

std::vector<std::string> Machine::Words(Writer writer, const std::vector<std::string>& more) const
{
    std::vector<std::string> words = {"--write", Folder.path().string(), std::to_string(writer)};
    words.insert(words.end(), more.begin(), more.end());
    return words;
}

Course Machine::RunDisturbed(const std::vector<Disturbance>& disturbances, const std::string& plant) const
{
    return Trace(Words(Disturbed, {"--traced", Kind.IsMoved ? "--move" : "--stay", "--plant=" + plant}), disturbances,
                 *Memory.Uncounted);
}

bool Machine::HolderReaches(unsigned goal) const
{
    testkit::WriterReport& report = Memory.Of(Holder);
    report.Goal = goal;
    return WaitUntil([&report, goal] { return report.Written >= goal || report.Failures != 0; }) &&
           report.Failures == 0;
}

std::optional<int> Machine::EndHolder()
{
    Memory.Of(Holder).Goal = EndOfHolder;
    return WaitInTime(*HolderProcess);
}

Files Machine::Read() const
{
    return {ReadIfThere(Folder / "log/App.log"), ReadIfThere(Folder / "log/Previous App.log"),
            ReadIfThere(Folder / "log/Moved App.log")};
}

std::vector<std::string> Machine::NamesIn(const std::string& folder) const
{
    std::vector<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(Folder / folder))
        names.push_back(entry.path().filename().string());
    return names;
}

std::optional<int> WaitInTime(testkit::Process& process)
{
    if (WaitUntil([&process] { return !process.IsRunning(); }))
        return process.Wait();
    process.Kill();
    return std::nullopt;
}

}  // namespace kill_points
