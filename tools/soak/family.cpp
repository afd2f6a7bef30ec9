// Starts, kills and stops the writers of one generation.
#include "soak/family.h"

#include "soak/run.h"
#include "soak/writer.h"

#include <algorithm>
#include <cstdio>
#include <stdexcept>
#include <thread>

namespace soak {
namespace {

std::string Hexadecimal(std::uint32_t number)
{
    char text[16];
    std::snprintf(text, sizeof text, "%08x", number);
    return text;
}

}  // namespace

Family::Family(Run& run, unsigned first)
    : TheRun(run), Slots(run.Config.Processes), Holder{nullptr, first + run.Config.Incarnations()}, Next(first)
{
    Of.First = first;
    Of.End = first + run.Config.ProcessesOfGeneration();
    Of.Killed.resize(run.Config.AllProcesses());
}

void Family::Open()
{
    for (unsigned slot = 0; slot < Slots.size(); ++slot)
        Start(slot, std::vector<unsigned>(TheRun.Config.Threads, TheRun.Config.Records));
    // All processes opened the log at once, and one of them moved the old file aside. From here on a process that is
    // never killed alone keeps the log open: the file must not be moved again while the others are killed.
    WaitUntil([this] { return AllOpen(); });
    Holder.Process = StartProcess(Holder.Number, TheRun.Config.Processes);
    WaitUntil([this] { return TheRun.Reports.At(Holder.Number, 0).Opened != 0; });
}

void Family::WriteAll()
{
    for (const Disturbance& disturbance : Plan()) {
        WaitUntil([&] { return Written() >= disturbance.At; });
        Disturb(disturbance);
    }
    // A process that opens the log after all others have closed it would move the file again.
    WaitUntil([this] { return Written() >= Total() && AllOpen(); });
    Of.Closings = TheRun.Config.Processes + 1;
}

void Family::KillAll()
{
    const std::uint64_t part = std::uniform_int_distribution<std::uint64_t>(1, Total())(TheRun.Chance);
    WaitUntil([&] { return Written() >= part; });
    for (const Slot& slot : Slots)
        Kill(slot);
    Kill(Holder);
}

void Family::End()
{
    TheRun.Manner->BeforeEnd(TheRun);
    if (!Members.End())
        throw std::runtime_error("a process ended with a failure");
}

std::uint64_t Family::Total() const
{
    return std::uint64_t{TheRun.Config.Processes} * TheRun.Config.Threads * TheRun.Config.Records;
}

void Family::Start(unsigned slot, const std::vector<unsigned>& goals)
{
    for (unsigned thread = 0; thread < TheRun.Config.Threads; ++thread)
        TheRun.Reports.At(Next, thread).Goal = goals[thread];
    Slots[slot] = {StartProcess(Next, slot), Next};
    ++Next;
}

testkit::Process* Family::StartProcess(unsigned process, unsigned slot)
{
    const Options& config = TheRun.Config;
    TheRun.Manner->BeforeStart(TheRun, slot);
    const WriterOrder order{TheRun.Name, config.Control, TheRun.Folder.path(), config.AllProcesses(),   config.Threads,
                            process,     config.Seed,    config.Pause,         slot == config.Processes};
    return &Members.Start(order.Words());
}

/// Kills and stops, spread over all records.
std::vector<Family::Disturbance> Family::Plan()
{
    const std::uint64_t now = Written();
    std::uniform_int_distribution<std::uint64_t> moment(now, std::max(now, Total() - 1));
    std::vector<Disturbance> plan;
    for (unsigned i = 0; i < TheRun.Config.Kills + TheRun.Config.Stops; ++i)
        plan.push_back({moment(TheRun.Chance), i < TheRun.Config.Kills});
    std::sort(plan.begin(), plan.end(), [](const auto& one, const auto& other) { return one.At < other.At; });
    return plan;
}

void Family::Disturb(const Disturbance& disturbance)
{
    const auto slot = std::uniform_int_distribution<unsigned>(0, TheRun.Config.Processes - 1)(TheRun.Chance);
    const Slot chosen = Slots[slot];
    if (!disturbance.Kill) {
        chosen.Process->Stop();
        std::this_thread::sleep_for(std::chrono::milliseconds(1500));
        chosen.Process->Continue();
        return;
    }
    Kill(chosen);
    std::vector<unsigned> goals;
    for (unsigned thread = 0; thread < TheRun.Config.Threads; ++thread) {
        const testkit::WriterReport& report = TheRun.Reports.At(chosen.Number, thread);
        goals.push_back(report.Goal - report.Written);
    }
    Start(slot, goals);
}

void Family::Kill(const Slot& slot)
{
    Of.KilledIds.insert(Hexadecimal(slot.Process->id()));
    Of.Killed[slot.Number] = true;
    slot.Process->Kill();
    ++TheRun.Found.Counts["kills"];
}

std::uint64_t Family::Written() const
{
    std::uint64_t sum = 0;
    for (unsigned process = Of.First; process < Next; ++process) {
        for (unsigned thread = 0; thread < TheRun.Config.Threads; ++thread)
            sum += TheRun.Reports.At(process, thread).Written;
    }
    return sum;
}

bool Family::AllOpen() const
{
    return std::all_of(Slots.begin(), Slots.end(),
                       [this](const Slot& slot) { return TheRun.Reports.At(slot.Number, 0).Opened != 0; });
}

void Family::CheckFailures() const
{
    for (unsigned process = Of.First; process < Next; ++process) {
        for (unsigned thread = 0; thread < TheRun.Config.Threads; ++thread) {
            const testkit::WriterReport& report = TheRun.Reports.At(process, thread);
            if (report.Failures != 0)
                throw std::runtime_error("a call failed with 0x" + Hexadecimal(report.LastFailure));
        }
    }
}

template <class Condition>
void Family::WaitUntil(Condition condition)
{
    while (!condition()) {
        if (!Members.AllRun())
            throw std::runtime_error("a process ended unexpectedly");
        if (!TheRun.Manner->rules().BearsFailures)
            CheckFailures();
        if (std::chrono::steady_clock::now() > TheRun.Limit)
            throw std::runtime_error("not done in time: " + std::to_string(Written()) + " records written");
        TheRun.Manner->Tick(TheRun);
        std::this_thread::sleep_for(std::chrono::microseconds(500));
    }
}

}  // namespace soak
