// A process that runs one function of this test program. For tests with GoogleTest.
//
//     const TestMachine machine;
//     TestProcess process(machine, [](const TestMachine& same) { EXPECT_TRUE(Works(same.Folder)); });
//     EXPECT_EQ(process.Wait(), 0);
#pragma once

#include "testkit/process.h"
#include "testkit/scratch_folder.h"

#include <gtest/gtest.h>

#include <type_traits>

namespace testkit {

/// Runs a lambda without captures and then ends as a program does. Its exit status is 0 if all expectations held. The
/// lambda gets the test's machine, or its scratch folder. On Linux the process is forked. On Windows the program starts
/// again, and the machine there is another object of the same type, which uses the same folder and settings.
class TestProcess : public Process {
public:
    template <class Machine>
    TestProcess(const Machine& machine, std::type_identity_t<void (*)(const Machine&)> work)
        : Process(Start(&Enter<Machine>, reinterpret_cast<Function>(work), &machine, FolderOf(machine)))
    {
    }

    using Function = void (*)();
    using Entry = int (*)(Function work, const void* machine);

private:
    static Process Start(Entry entry, Function work, const void* machine, const ScratchFolder& folder);

    static const ScratchFolder& FolderOf(const ScratchFolder& folder) { return folder; }
    template <class Machine>
    static const ScratchFolder& FolderOf(const Machine& machine)
    {
        return machine.Folder;
    }

    /// @param machine null in a program that started again @return the exit status
    template <class Machine>
    static int Enter(Function work, const void* machine)
    {
        const auto run = reinterpret_cast<void (*)(const Machine&)>(work);
        if (machine == nullptr)
            run(Machine());
        else
            run(*static_cast<const Machine*>(machine));
        return testing::Test::HasFailure() ? 1 : 0;
    }
};

/// Runs `work` in a process, which ends as a program does: its log is closed. The test fails if the process does.
template <class Machine>
void RunAlone(const Machine& machine, std::type_identity_t<void (*)(const Machine&)> work)
{
    EXPECT_EQ(TestProcess(machine, work).Wait(), 0) << "the process that ran alone";
}

/// Ends this process at once, as a kill does.
[[noreturn]] void Die();

/// For `main`: whether this program was started for a TestProcess, and its work. @return the exit status.
bool IsTestProcess();
int RunTestProcess();

}  // namespace testkit
