// Members inherit the gate and the standard output of the process that starts them.
#include "tools/family.h"

#include "wide.h"

#include <map>
#include <stdexcept>
#include <system_error>

#include <shellapi.h>
#include <tlhelp32.h>

namespace tools {
namespace {

[[noreturn]] void Throw(DWORD error, const std::string& what)
{
    throw std::system_error(static_cast<int>(error), std::system_category(), what);
}

/// Waits for the end of a process, and gives its code.
DWORD WaitForEnd(HANDLE process)
{
    DWORD code = ~DWORD{0};
    WaitForSingleObject(process, INFINITE);
    GetExitCodeProcess(process, &code);
    CloseHandle(process);
    return code;
}

/// The system stops threads, not processes.
void ForEachThread(DWORD process, DWORD(WINAPI* call)(HANDLE))
{
    const HANDLE snapshot = CreateToolhelp32Snapshot(TH32CS_SNAPTHREAD, 0);
    if (snapshot == INVALID_HANDLE_VALUE)
        Throw(GetLastError(), "the list of threads");
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

/// Suspends a thread and waits until it rests.
DWORD WINAPI Halt(HANDLE thread)
{
    const DWORD before = SuspendThread(thread);
    CONTEXT context{};
    context.ContextFlags = CONTEXT_CONTROL;
    GetThreadContext(thread, &context);
    return before;
}

}  // namespace

void* MapFile(const std::filesystem::path& path, std::size_t size)
{
    const HANDLE file = CreateFileW(path.c_str(), GENERIC_READ | GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_WRITE,
                                    nullptr, OPEN_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr);
    if (file == INVALID_HANDLE_VALUE)
        Throw(GetLastError(), ToUtf8(path));
    void* memory = nullptr;
    DWORD error = 0;
    const HANDLE mapping = CreateFileMappingW(file, nullptr, PAGE_READWRITE, 0, static_cast<DWORD>(size), nullptr);
    if (mapping != nullptr)
        memory = MapViewOfFile(mapping, FILE_MAP_WRITE, 0, 0, size);
    if (memory == nullptr)
        error = GetLastError();
    if (mapping != nullptr)
        CloseHandle(mapping);
    CloseHandle(file);
    if (memory == nullptr)
        Throw(error, ToUtf8(path));
    return memory;
}

void UnmapFile(void* memory, std::size_t)
{
    UnmapViewOfFile(memory);
}

std::filesystem::path ThisProgram()
{
    std::wstring path(0x8000, L'\0');
    path.resize(GetModuleFileNameW(nullptr, path.data(), static_cast<DWORD>(path.size())));
    return path;
}

std::vector<std::string> Arguments(int, char**)
{
    int count = 0;
    wchar_t** const words = CommandLineToArgvW(GetCommandLineW(), &count);
    if (words == nullptr)
        Throw(GetLastError(), "the command line");
    std::vector<std::string> arguments;
    for (int i = 1; i < count; ++i)
        arguments.push_back(Narrow(words[i]));
    LocalFree(words);
    return arguments;
}

struct Family::Inner {
    void CloseGate()
    {
        if (GateOut != nullptr)
            CloseHandle(GateOut);
        GateOut = nullptr;
    }

    std::wstring Program;
    HANDLE GateIn = nullptr;   // the members' end
    HANDLE GateOut = nullptr;  // closes when they may leave
    std::map<std::uint32_t, HANDLE> Members{};
};

Family::Family(const std::filesystem::path& program) : Held(new Inner{program.wstring()})
{
    SECURITY_ATTRIBUTES inherited{sizeof(SECURITY_ATTRIBUTES), nullptr, TRUE};
    if (!CreatePipe(&Held->GateIn, &Held->GateOut, &inherited, 0) ||
        !SetHandleInformation(Held->GateOut, HANDLE_FLAG_INHERIT, 0))
        Throw(GetLastError(), "pipe");
}

Family::~Family()
{
    for (const auto& [id, process] : Held->Members) {
        TerminateProcess(process, 1);
        WaitForEnd(process);
    }
    Held->CloseGate();
    CloseHandle(Held->GateIn);
}

std::uint32_t Family::Start(const std::vector<std::string>& arguments)
{
    std::wstring line = L'"' + Held->Program + L'"';
    for (const std::string& argument : arguments)
        line += L" \"" + Wide(argument) + L'"';
    STARTUPINFOW startup{};
    startup.cb = sizeof startup;
    startup.dwFlags = STARTF_USESTDHANDLES;
    startup.hStdInput = Held->GateIn;
    startup.hStdOutput = GetStdHandle(STD_OUTPUT_HANDLE);
    startup.hStdError = GetStdHandle(STD_ERROR_HANDLE);
    PROCESS_INFORMATION made{};
    if (!CreateProcessW(Held->Program.c_str(), line.data(), nullptr, nullptr, TRUE, 0, nullptr, nullptr, &startup,
                        &made))
        Throw(GetLastError(), Narrow(Held->Program));
    CloseHandle(made.hThread);
    Held->Members[made.dwProcessId] = made.hProcess;
    return made.dwProcessId;
}

void Family::Kill(std::uint32_t process)
{
    const HANDLE member = Held->Members.at(process);
    // The system ends what a thread has begun to write before it frees the thread's mutexes. Its emulation frees them
    // at once, so the threads come to rest first, wherever they are.
    ForEachThread(process, Halt);
    TerminateProcess(member, 1);
    WaitForEnd(member);
    Held->Members.erase(process);
}

void Family::Stop(std::uint32_t process)
{
    ForEachThread(process, SuspendThread);
}

void Family::Continue(std::uint32_t process)
{
    ForEachThread(process, ResumeThread);
}

bool Family::AllRun() const
{
    for (const auto& [id, process] : Held->Members) {
        if (WaitForSingleObject(process, 0) != WAIT_TIMEOUT)
            return false;
    }
    return true;
}

bool Family::Leave()
{
    Held->CloseGate();
    bool sound = true;
    for (const auto& [id, process] : Held->Members)
        sound = WaitForEnd(process) == 0 && sound;
    Held->Members.clear();
    return sound;
}

void WaitToLeave()
{
    char byte;
    DWORD got = 0;
    while (ReadFile(GetStdHandle(STD_INPUT_HANDLE), &byte, 1, &got, nullptr)) {
    }
}

}  // namespace tools
