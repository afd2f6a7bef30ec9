// Processes of a test by a further run of its program, gates by named semaphores.
#include "processes.h"

#include <windows.h>

#include <algorithm>
#include <cstdlib>

namespace support {

namespace {

/// Names what a process was started for: its entry and its function, as distances within the program, which lies at
/// another address in every process.
constexpr const char* StartVariable = "TESSMARU_TEST_START";

std::intptr_t Anchor()
{
    return reinterpret_cast<std::intptr_t>(GetModuleHandleW(nullptr));
}

const char* Start()
{
    static const char* const start = std::getenv(StartVariable);
    return start;
}

HANDLE AsHandle(std::intptr_t value)
{
    return reinterpret_cast<HANDLE>(value);
}

}  // namespace

bool StartedAnew()
{
    return Start() != nullptr;
}

int RunStarted()
{
    char* rest = nullptr;
    const auto entry = reinterpret_cast<Process::Entry>(Anchor() + std::strtoll(Start(), &rest, 10));
    const auto work = reinterpret_cast<Process::Function>(Anchor() + std::strtoll(rest, nullptr, 10));
    entry(work, nullptr);
    return testing::Test::HasFailure() ? 1 : 0;
}

Gate::Gate(const std::string& path)
{
    std::string name = path;
    std::replace(name.begin(), name.end(), '\\', '/');
    Handle = reinterpret_cast<std::intptr_t>(CreateSemaphoreA(nullptr, 0, 1000, name.c_str()));
    if (Handle == 0)
        std::abort();
}

Gate::~Gate()
{
    CloseHandle(AsHandle(Handle));
}

void Gate::Open() const
{
    if (!ReleaseSemaphore(AsHandle(Handle), 1, nullptr))
        std::abort();
}

void Gate::Pass() const
{
    if (WaitForSingleObject(AsHandle(Handle), INFINITE) != WAIT_OBJECT_0)
        std::abort();
}

Process::Process(Entry entry, Function work, const void*)
{
    const Variable start(StartVariable, std::to_string(reinterpret_cast<std::intptr_t>(entry) - Anchor()) + " " +
                                            std::to_string(reinterpret_cast<std::intptr_t>(work) - Anchor()));
    wchar_t program[MAX_PATH];
    GetModuleFileNameW(nullptr, program, MAX_PATH);
    STARTUPINFOW startup{};
    startup.cb = sizeof startup;
    PROCESS_INFORMATION made{};
    if (!CreateProcessW(program, nullptr, nullptr, nullptr, FALSE, 0, nullptr, nullptr, &startup, &made))
        std::abort();
    CloseHandle(made.hThread);
    Id = made.dwProcessId;
    Handle = reinterpret_cast<std::intptr_t>(made.hProcess);
}

Process::~Process()
{
    if (Handle != -1)
        Kill();
}

int Process::Wait()
{
    DWORD status = 1;
    WaitForSingleObject(AsHandle(Handle), INFINITE);
    GetExitCodeProcess(AsHandle(Handle), &status);
    CloseHandle(AsHandle(Handle));
    Handle = -1;
    return static_cast<int>(status);
}

void Process::Kill()
{
    TerminateProcess(AsHandle(Handle), 1);
    Wait();
}

void Die()
{
    TerminateProcess(GetCurrentProcess(), 1);
    std::abort();
}

}  // namespace support
