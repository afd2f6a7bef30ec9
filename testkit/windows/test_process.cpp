// Test processes on Windows: another run of the test program.
#include "testkit/test_process.h"

#include "testkit/environment_variable.h"
#include "testkit/program.h"

#include <cstdlib>
#include <string>

#include <windows.h>

namespace testkit {

namespace {

/// Names the entry and the function that a process was started for, as distances within the program, which is at
/// another address in every process.
constexpr const char* StartVariable = "TESSMARU_TESTKIT_START";

std::intptr_t Anchor()
{
    return reinterpret_cast<std::intptr_t>(GetModuleHandleW(nullptr));
}

const char* StartText()
{
    static const char* const start = std::getenv(StartVariable);
    return start;
}

}  // namespace

bool IsTestProcess()
{
    return StartText() != nullptr;
}

int RunTestProcess()
{
    char* rest = nullptr;
    const auto entry = reinterpret_cast<TestProcess::Entry>(Anchor() + std::strtoll(StartText(), &rest, 10));
    const auto work = reinterpret_cast<TestProcess::Function>(Anchor() + std::strtoll(rest, nullptr, 10));
    return entry(work, nullptr);
}

Process TestProcess::Start(Entry entry, Function work, const void*, const ScratchFolder& folder)
{
    const EnvironmentVariable start(StartVariable,
                                    std::to_string(reinterpret_cast<std::intptr_t>(entry) - Anchor()) + " " +
                                        std::to_string(reinterpret_cast<std::intptr_t>(work) - Anchor()));
    const EnvironmentVariable joined(ScratchFolder::Variable, folder.path().string());
    return Process(ThisProgram());
}

void Die()
{
    TerminateProcess(GetCurrentProcess(), 1);
    std::abort();
}

}  // namespace testkit
