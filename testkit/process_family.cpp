// Processes of one program that end together.
#include "testkit/process_family.h"

#include <algorithm>

namespace testkit {

Process& ProcessFamily::Start(const std::vector<std::string>& arguments)
{
    Process::Streams streams;
    streams.Input = MayEnd.input();
    return Members.emplace_back(Program, arguments, streams);
}

bool ProcessFamily::AllRun() const
{
    return std::all_of(Members.begin(), Members.end(),
                       [](const Process& process) { return process.IsOver() || process.IsRunning(); });
}

bool ProcessFamily::End()
{
    MayEnd.CloseOutput();
    bool succeeded = true;
    for (Process& process : Members) {
        if (!process.IsOver())
            succeeded = process.Wait() == 0 && succeeded;
    }
    return succeeded;
}

}  // namespace testkit
