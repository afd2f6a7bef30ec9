// What may be in the files after a run follows from what was there before, so the contents are compared byte by byte.
#include "run.h"

#include "system_calls.h"
#include "testkit/ledger.h"
#include "testkit/log_reader.h"
#include "testkit/program.h"

#include <algorithm>
#include <set>

#include <sys/syscall.h>

namespace kill_points {
namespace {

using Clock = std::chrono::steady_clock;

bool IsEmpty(const std::optional<std::string>& file)
{
    return !file || file->empty();
}

bool StartsWith(const std::optional<std::string>& file, const std::optional<std::string>& start)
{
    return IsEmpty(start) || (file && file->starts_with(*start));
}

class Run {
public:
    Run(const Scenario& scenario, const std::vector<Disturbance>& disturbances) : Place(scenario), Plan(disturbances) {}

    RunResult Do(const std::string& plant)
    {
        Place.Prepare();
        Before = Place.Read();
        Result.Traced = Place.RunDisturbed(Plan, plant);
        CheckEnd();
        if (Place.Kind.HasHolder)
            Expect(Place.HolderReaches(3), "the holder was disturbed");
        const Files middle = Place.Read();
        CheckFirst(middle);
        CheckMutexFiles();
        RunSuccessor();
        CheckSecond(middle, Place.Read());
        if (Place.Kind.HasHolder)
            Expect(Place.HolderReaches(RecordsOfWriter) && Place.EndHolder() == 0,
                   "the holder was disturbed at the end");
        CheckRecords();
        Expect(Place.NamesIn("run").empty(), "a file is left in the runtime folder");
        return Result;
    }

private:
    void Expect(bool holds, const char* finding)
    {
        if (!holds)
            Result.Findings.emplace_back(finding);
    }

    SystemCall CallOf(const Disturbance& disturbance) const
    {
        const std::vector<SystemCall>& calls = Result.Traced.Calls;
        return disturbance.Call < calls.size() ? calls[disturbance.Call] : SystemCall();
    }

    bool IsKillPlanned() const { return !Plan.empty() && Plan[0].What != Act::cut && Plan[0].What != Act::fail; }
    bool IsKilled() const { return Result.Traced.How == Course::End::killed; }

    void CheckEnd()
    {
        const Course& course = Result.Traced;
        Expect(course.How != Course::End::hung, "the process did not end in time");
        Expect(course.How != Course::End::crashed, "the process ended by a signal");
        Expect(IsKilled() == IsKillPlanned(), "the process was not killed");
        if (course.How != Course::End::exited)
            return;
        Expect(course.Status != NoCode, "the log did not open, and there was no code");
        Expect(course.Status == 0 || course.Status == NoCode, "the process ended with a failure");
        Expect(course.DescriptorsLeft <= MayLeaveDescriptors(), "a descriptor is left open");
        Expect(Place.Memory.Of(Disturbed).Written == RecordsOfWriter, "the process did not recover from its failures");
    }

    /// The library does not close a descriptor if it cannot find out whether it still refers to its own file.
    int MayLeaveDescriptors() const
    {
        return static_cast<int>(std::count_if(Plan.begin(), Plan.end(), [this](const Disturbance& disturbance) {
            return IsStatusOfDescriptor(CallOf(disturbance));
        }));
    }

    /// What the disturbed process found is in the log unchanged, or was moved to the previous file as a whole.
    void CheckFirst(const Files& now)
    {
        const auto& log = now.Moved ? now.Moved : now.Current;
        const bool kept = now.Previous == Before.Previous && StartsWith(log, Before.Current);
        const bool rolled = !Place.Kind.HasHolder && !IsEmpty(Before.Current) && now.Previous == Before.Current &&
                            !(log && log->find(*Before.Current) != std::string::npos);
        Expect(kept || rolled, "the old content is not in exactly one file");
    }

    /// The successor meets no failure: it rolls over exactly if there is content and no other process has the log open.
    void CheckSecond(const Files& first, const Files& now)
    {
        Expect(now.Moved == first.Moved, "the moved file was changed");
        if (Place.Kind.HasHolder || IsEmpty(first.Current))
            Expect(now.Previous == first.Previous && StartsWith(now.Current, first.Current),
                   "the successor rolled over or lost content");
        else
            Expect(now.Previous == first.Current, "the successor did not roll over the whole log");
        const std::set<std::string> known = {"App.log", "Previous App.log", "Moved App.log"};
        for (const std::string& name : Place.NamesIn("log"))
            Expect(known.contains(name), "an unknown file is in the folder of the log");
    }

    void CheckMutexFiles()
    {
        const std::size_t own = Place.NamesIn("run").size() - (Place.Kind.HasHolder && !Place.NamesIn("run").empty());
        Expect(own <= 1, "more than one file is in the runtime folder");
        if (!IsKilled() && own != 0 && !Place.Kind.HasHolder) {
            ++Result.Left;
            Expect(MayLeaveMutexFile(), "the file of the mutex is left");
        }
    }

    /// A process that cannot find out whether it is the last one, or cannot remove the file, has to leave it.
    bool MayLeaveMutexFile() const
    {
        return std::any_of(Plan.begin(), Plan.end(), [this](const Disturbance& disturbance) {
            const long number = CallOf(disturbance).Number;
            return number == SYS_unlink || number == SYS_fcntl || number == SYS_newfstatat;
        });
    }

    void RunSuccessor()
    {
        const auto begin = Clock::now();
        testkit::Process successor(testkit::ThisProgram(), Place.Words(Successor, {}));
        const std::optional<int> status = WaitInTime(successor);
        Result.SuccessorSeconds = std::chrono::duration<double>(Clock::now() - begin).count();
        Expect(status.has_value(), "the successor did not end in time");
        Expect(!status || *status == 0, "the successor ended with a failure");
        const testkit::WriterReport& report = Place.Memory.Of(Successor);
        Expect(report.Written == RecordsOfWriter && report.Failures == 0, "a call of the successor failed");
    }

    /// Each acknowledged record is there once and whole, in the order of its writer.
    void CheckRecords()
    {
        const unsigned writers = Place.Kind.HasHolder ? Earlier : Holder;
        testkit::Ledger ledger(Place.Memory.Reports, 0, writers, {IsKilled(), false, false});
        for (const char* const name : {"log/Moved App.log", "log/Previous App.log", "log/App.log"}) {
            if (!std::filesystem::exists(Place.Folder / name))
                continue;
            const testkit::LogFile file(Place.Folder / name);
            Result.Torn += static_cast<unsigned>(file.Torn().size());
            for (const testkit::Record& record : file.Records()) {
                const auto mark = testkit::ReadMark(record.Text);
                if (!mark || mark->Process >= writers)
                    continue;  // of the earlier process: its content was compared before
                if (record.Text == TextOf(mark->Process, mark->Number))
                    ledger.Enter(*mark);
                else
                    ++Result.Torn;  // cut in its text
            }
        }
        const testkit::Findings found = ledger.Close();
        Result.Unreported = found.Unreported;
        Expect(found.Lost == 0, "an acknowledged record is lost");
        Expect(found.Duplicated == 0, "a record is duplicated");
        Expect(found.Misplaced == 0, "a record is misplaced");
        Expect(found.Unexpected == 0, "a record is there that was never acknowledged");
        Expect(Result.Torn <= AllowedTorn(), "a record is torn");
    }

    /// Only a write that was cut leaves a torn record, and the dead owner left one.
    unsigned AllowedTorn() const
    {
        const auto cuts = std::count_if(Plan.begin(), Plan.end(), [](const Disturbance& disturbance) {
            return disturbance.What == Act::cut || disturbance.What == Act::killInside;
        });
        return static_cast<unsigned>(cuts) + (Place.Kind.HasDeadOwner ? 1 : 0);
    }

    Machine Place;
    const std::vector<Disturbance>& Plan;
    Files Before;
    RunResult Result;
};

}  // namespace

RunResult RunOnce(const Scenario& scenario, const std::vector<Disturbance>& disturbances, const std::string& plant)
{
    return Run(scenario, disturbances).Do(plant);
}

}  // namespace kill_points
