// The cases of the table of faults: each causes one fault in one place, on a thread with an InstallSETranslator.
//
//     cases CASE
//
// Prints "caught" if a handler of structured_exception has caught the fault, and the local object of its block was
// destroyed first. fault_matrix.py compiles it in several ways and runs each case in a process.
#include "cases.h"

#include "tessmaru/structured_exception.h"

#include <cerrno>
#include <csetjmp>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include <dlfcn.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

// Not in an unnamed namespace: clang++ generates the functions of one after those that call them, and so does not see
// that they cannot throw.
#define DEFINE_ABOVE(name, ...)                \
    [[gnu::noinline]] void AboveFault_##name() \
    {                                          \
        __VA_ARGS__                            \
    }
FAULTS(DEFINE_ABOVE)

namespace {

bool destroyed = false;

struct Local {
    ~Local() { destroyed = true; }
};

void Caught(const structured_exception& fault)
{
    const bool isDescribed = std::strstr(fault.what(), "SE exception at address 0x") == fault.what();
    std::puts(destroyed && isDescribed ? "caught" : "caught, with a fault");
    std::fflush(stdout);
    std::_Exit(0);
}

#define CATCH(statements)                         \
    try {                                         \
        Local local;                              \
        statements                                \
    } catch (const structured_exception& fault) { \
        Caught(fault);                            \
    }

// ---- Places of the program's own code

#define DEFINE_PLACES(name, ...)                           \
    void Block_##name()                                    \
    {                                                      \
        CATCH(__VA_ARGS__)                                 \
    }                                                      \
    void Above_##name()                                    \
    {                                                      \
        CATCH(AboveFault_##name(); target = 2;)            \
    }                                                      \
    void BelowFault_##name();                              \
    void Below_##name()                                    \
    {                                                      \
        CATCH(BelowFault_##name(); target = 2;)            \
    }                                                      \
    [[gnu::noinline]] void BelowFault_##name()             \
    {                                                      \
        __VA_ARGS__                                        \
    }                                                      \
    void Other_##name()                                    \
    {                                                      \
        CATCH(Unseen_##name(); target = 2;)                \
    }                                                      \
    [[gnu::noinline]] void NoexceptFault_##name() noexcept \
    {                                                      \
        Unseen_##name();                                   \
        target = 3;                                        \
    }                                                      \
    void Noexcept_##name()                                 \
    {                                                      \
        CATCH(NoexceptFault_##name(); target = 2;)         \
    }
FAULTS(DEFINE_PLACES)

// ---- Functions of the C library and of the C++ library

char* volatile noText = nullptr;
std::vector<int>* volatile noVector = nullptr;
std::string* volatile noString = nullptr;
volatile std::size_t eight = 8;
char buffer[64];
void* volatile wildPointer = reinterpret_cast<void*>(0x12345670);

void Memcpy()
{
    CATCH(std::memcpy(buffer, noText, eight);)
}
void Memset()
{
    CATCH(std::memset(noText, 1, eight);)
}
void Strlen()
{
    CATCH(target = static_cast<int>(std::strlen(noText));)
}
void Strcpy()
{
    CATCH(std::strcpy(buffer, noText);)
}
void Snprintf()
{
    CATCH(std::snprintf(noText, eight, "%s", "a text");)
}
void Printf()
{
    CATCH(std::printf("%s", noText + 1);)
}
void Free()
{
    CATCH(std::free(wildPointer);)
}
void Qsort()
{
    CATCH(std::qsort(buffer, 4, 4, [](const void*, const void*) {
              Unseen_read();
              return target;
          });)
}
void VectorSize()
{
    CATCH(target = static_cast<int>(noVector->size());)
}
void VectorPushBack()
{
    CATCH(noVector->push_back(1);)
}
void StringAssign()
{
    CATCH(*noString = "a text that does not fit into the object itself";)
}
void StringMove()
{
    CATCH(*noString = std::string("text");)
}

/// Damages the free memory of the heap, so that the allocator follows a wild pointer while it holds its lock.
void DamagedHeap()
{
    void* blocks[64];
    for (void*& block : blocks)
        block = std::malloc(2000);
    for (std::size_t i = 0; i < 64; i += 2)
        std::free(blocks[i]);
    for (std::size_t i = 0; i < 64; i += 2)
        std::memset(blocks[i], 0x11, 32);
    CATCH(for (;;) noText = static_cast<char*>(std::malloc(3000));)
}
void LoaderHandle()
{
    void* (*volatile find)(void*, const char*) = dlsym;
    CATCH(find(reinterpret_cast<void*>(0x1234567), "name");)
}

// ---- Threads and processes

void OnThread()
{
    std::thread([] {
        const InstallSETranslator translator;
        Other_read();
    }).join();
}
void OnBlockingThread()
{
    sigset_t all;
    sigfillset(&all);
    pthread_sigmask(SIG_BLOCK, &all, nullptr);
    OnThread();
}
void AfterFork()
{
    const pid_t child = fork();
    if (child == 0)
        Other_read();
    int status = 0;
    waitpid(child, &status, 0);
    if (WIFSIGNALED(status))
        raise(WTERMSIG(status));
    std::_Exit(0);
}
volatile int depth = 0;
[[gnu::noinline]] int Recurse(int level)
{
    volatile char frame[600];
    frame[0] = static_cast<char>(level);
    if (zero != 0)
        Unseen_read();
    return Recurse(level + 1) + frame[0];
}
void StackOverflow()
{
    CATCH(target = Recurse(0);)
}

// ---- Hosts: programs with their own handler of signals

unsigned char* page = nullptr;

void Handle(void (*handler)(int, siginfo_t*, void*), int flags = 0)
{
    struct sigaction action {};
    action.sa_sigaction = handler;
    action.sa_flags = SA_SIGINFO | flags;
    sigaction(SIGSEGV, &action, nullptr);
}
void Repair(int, siginfo_t*, void*)
{
    mprotect(page, 4096, PROT_READ | PROT_WRITE);
}
void Report(int, siginfo_t*, void*)
{
    static const char text[] = "host: crash report\n";
    (void)!write(STDERR_FILENO, text, sizeof text - 1);
    signal(SIGSEGV, SIG_DFL);
}
sigjmp_buf backToHost;
void Leave(int, siginfo_t*, void*)
{
    siglongjmp(backToHost, 1);
}

void MakePage(int protection)
{
    page = static_cast<unsigned char*>(mmap(nullptr, 4096, protection, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0));
}
void Installed(void (*work)())
{
    const InstallSETranslator translator;
    work();
}
void Continued()
{
    std::puts("the host continues");
    std::fflush(stdout);
    std::_Exit(0);
}

void LazyPage()
{
    MakePage(PROT_NONE);
    Handle(Repair);
    Installed([] {
        for (int round = 0; round < 100; ++round) {
            mprotect(page, 4096, PROT_NONE);
            CATCH(page[8] = 1; target = page[8];)
        }
        Continued();
    });
}
void GeneratedCode(bool handled)
{
    MakePage(PROT_READ | PROT_WRITE | PROT_EXEC);
    const unsigned char code[] = {0x31, 0xC0, 0x8B, 0x00, 0xC3};  // xor eax, eax; mov eax, [eax]; ret
    std::memcpy(page, code, sizeof code);
    if (handled)
        Handle(Leave);
    if (sigsetjmp(backToHost, 1) != 0)
        Continued();
    Installed([] { CATCH(reinterpret_cast<void (*)()>(page)(); target = 2;) });
}
void GeneratedCodeOfAHost()
{
    GeneratedCode(true);
}
void GeneratedCodeWithoutAHost()
{
    GeneratedCode(false);
}
void CrashReporterAndAHandler()
{
    Handle(Report);
    Installed(Other_read);
}
void CrashReporterWithoutAHandler()
{
    Handle(Report);
    Installed(Noexcept_read);
}
void HandlerInstalledLater()
{
    InstallSETranslator translator;
    Handle(Report);
    translator.install();
    Other_read();
}

struct Case {
    const char* Name;
    void (*Run)();
    bool InstallsItself;
};

#define PLACES_OF(name, ...)                                                           \
    {"block-" #name, Block_##name, false}, {"above-" #name, Above_##name, false},      \
        {"below-" #name, Below_##name, false}, {"unseen-" #name, Other_##name, false}, \
        {"noexcept-" #name, Noexcept_##name, false},

const Case cases[] = {
    FAULTS(PLACES_OF){"memcpy", Memcpy, false},
    {"memset", Memset, false},
    {"strlen", Strlen, false},
    {"strcpy", Strcpy, false},
    {"snprintf", Snprintf, false},
    {"printf", Printf, false},
    {"free", Free, false},
    {"qsort", Qsort, false},
    {"vector-size", VectorSize, false},
    {"vector-push-back", VectorPushBack, false},
    {"string-assign", StringAssign, false},
    {"string-move", StringMove, false},
    {"damaged-heap", DamagedHeap, false},
    {"dlsym", LoaderHandle, false},
    {"thread", OnThread, true},
    {"blocking-thread", OnBlockingThread, true},
    {"fork", AfterFork, false},
    {"stack-overflow", StackOverflow, false},
    {"lazy-page", LazyPage, true},
    {"generated-code-host", GeneratedCodeOfAHost, true},
    {"generated-code", GeneratedCodeWithoutAHost, true},
    {"reporter-handler", CrashReporterAndAHandler, true},
    {"reporter-no-handler", CrashReporterWithoutAHandler, true},
    {"later-handler", HandlerInstalledLater, true},
};

}  // namespace

int main(int count, char** arguments)
{
    for (const Case& known : cases) {
        if (count != 2 || std::strcmp(arguments[1], known.Name) != 0)
            continue;
        if (known.InstallsItself)
            known.Run();
        else
            Installed(known.Run);
        std::puts("no fault");
        return 0;
    }
    return 2;
}
