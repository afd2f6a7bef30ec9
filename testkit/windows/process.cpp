// Processes on Windows.
#include "testkit/process.h"

#include "testkit/windows/last_failure.h"
#include "testkit/windows/wide.h"

#include <utility>

#include <tlhelp32.h>

namespace testkit {
namespace {

HANDLE AsHandle(std::intptr_t value)
{
    return reinterpret_cast<HANDLE>(value);
}

/// Windows stops threads, not processes.
void ForEachThread(DWORD process, DWORD(WINAPI* call)(HANDLE))
{
    const HANDLE snapshot = CreateToolhelp32Snapshot(TH32CS_SNAPTHREAD, 0);
    if (snapshot == INVALID_HANDLE_VALUE)
        ThrowLastFailure("the list of threads");
    THREADENTRY32 entry{};
    entry.dwSize = sizeof entry;
    for (BOOL more = Thread32First(snapshot, &entry); more; more = Thread32Next(snapshot, &entry)) {
        if (entry.th32OwnerProcessID != process)
            continue;
        const HANDLE thread = OpenThread(THREAD_SUSPEND_RESUME | THREAD_GET_CONTEXT, FALSE, entry.th32ThreadID);
        if (thread == nullptr)
            continue;
        call(thread);
        CloseHandle(thread);
    }
    CloseHandle(snapshot);
}

/// Suspends a thread and waits until it is suspended.
DWORD WINAPI Halt(HANDLE thread)
{
    const DWORD before = SuspendThread(thread);
    CONTEXT context{};
    context.ContextFlags = CONTEXT_CONTROL;
    GetThreadContext(thread, &context);
    return before;
}

PROCESS_INFORMATION Spawn(const std::filesystem::path& program, const std::vector<std::string>& arguments,
                          const Process::Streams& streams)
{
    std::wstring line = L'"' + program.wstring() + L'"';
    for (const std::string& argument : arguments)
        line += L" \"" + WideFromUtf8(argument) + L'"';
    STARTUPINFOW startup{};
    startup.cb = sizeof startup;
    const bool redirected = streams.Input != -1 || streams.DiscardOutput;
    if (redirected) {
        startup.dwFlags = STARTF_USESTDHANDLES;
        startup.hStdInput = streams.Input != -1 ? AsHandle(streams.Input) : GetStdHandle(STD_INPUT_HANDLE);
        startup.hStdOutput = streams.DiscardOutput ? nullptr : GetStdHandle(STD_OUTPUT_HANDLE);
        startup.hStdError = GetStdHandle(STD_ERROR_HANDLE);
    }
    PROCESS_INFORMATION made{};
    if (!CreateProcessW(program.c_str(), line.data(), nullptr, nullptr, redirected, 0, nullptr, nullptr, &startup,
                        &made))
        ThrowLastFailure(Utf8FromWide(program.wstring()));
    CloseHandle(made.hThread);
    return made;
}

}  // namespace

Process::Process(const std::filesystem::path& program, const std::vector<std::string>& arguments,
                 const Streams& streams)
{
    const PROCESS_INFORMATION made = Spawn(program, arguments, streams);
    Handle = reinterpret_cast<std::intptr_t>(made.hProcess);
    Id = made.dwProcessId;
}

Process::Process(Process&& other) noexcept : Handle(std::exchange(other.Handle, NoHandle)), Id(other.Id) {}

Process::~Process()
{
    if (!IsOver())
        Kill();
}

bool Process::IsRunning() const
{
    return !IsOver() && WaitForSingleObject(AsHandle(Handle), 0) == WAIT_TIMEOUT;
}

int Process::Wait()
{
    DWORD status = 1;
    WaitForSingleObject(AsHandle(Handle), INFINITE);
    GetExitCodeProcess(AsHandle(Handle), &status);
    CloseHandle(AsHandle(Handle));
    Handle = NoHandle;
    return static_cast<int>(status);
}

int Process::Kill()
{
    // Windows finishes a write that a thread has begun before it releases the thread's mutexes. Its emulation releases
    // them at once, so the threads are suspended first.
    ForEachThread(Id, Halt);
    TerminateProcess(AsHandle(Handle), 1);
    return Wait();
}

void Process::Stop() const
{
    ForEachThread(Id, Halt);
}

void Process::Continue() const
{
    ForEachThread(Id, ResumeThread);
}

}  // namespace testkit
