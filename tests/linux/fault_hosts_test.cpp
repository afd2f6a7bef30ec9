// Faults on Linux that are not thrown: those of the host program, and those that would not reach a handler.
#include "tessmaru/structured_exception.h"
#include "testkit/faulting_calls.h"

#include <gtest/gtest.h>

#include <csetjmp>
#include <csignal>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>
#include <thread>

#include <dlfcn.h>
#include <sys/mman.h>
#include <sys/ptrace.h>
#include <sys/resource.h>
#include <sys/user.h>
#include <sys/wait.h>
#include <unistd.h>

using testing::ExitedWithCode;
using testing::KilledBySignal;
using testkit::Faulting;
using testkit::Invoke;
using testkit::ReadNull;

namespace {

#if defined __SANITIZE_THREAD__ || defined __SANITIZE_ADDRESS__
constexpr bool IsSanitized = true;
#else
constexpr bool IsSanitized = false;
#endif

#define DESCRIBED "SE exception at address 0x.*not thrown: "

/// Runs a function with the default action of SIGSEGV, also in place of a sanitizer's, and with a limit of time: none
/// of these faults may hang. Ends with 0 if all expectations held.
[[noreturn]] void RunAndExit(void (*work)())
{
    std::signal(SIGSEGV, SIG_DFL);
    alarm(60);
    work();
    _exit(testing::Test::HasFailure() ? 1 : 0);
}

using Handler = void(int, siginfo_t*, void*);

void Handle(Handler* handler, int flags = 0, int masked = 0)
{
    struct sigaction action {};
    action.sa_sigaction = handler;
    action.sa_flags = SA_SIGINFO | flags;
    if (masked != 0)
        sigaddset(&action.sa_mask, masked);
    sigaction(SIGSEGV, &action, nullptr);
}

/// Whether a fault of this function is thrown and caught.
bool IsCaught(Faulting function)
{
    try {
        Invoke(function);
    } catch (const structured_exception&) {
        return true;
    }
    return false;
}

// Hosts.

constexpr std::size_t PageBytes = 4096;
volatile char* page = nullptr;
int calls = 0;

void MakePage(int protection)
{
    page = static_cast<char*>(mmap(nullptr, PageBytes, protection, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0));
}
void RepairPage(int, siginfo_t*, void*)
{
    ++calls;
    mmap(const_cast<char*>(page), PageBytes, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_FIXED, -1, 0);
}
TESSMARU_FAULTING void WritePage()
{
    page[8] = 1;
}
TESSMARU_FAULTING void ReadPage()
{
    testkit::Target = page[8];
}

TEST(FaultHosts, HandlerThatRepairsFaultsKeepsThem)
{
    EXPECT_EXIT(RunAndExit([] {
                    MakePage(PROT_NONE);
                    Handle(RepairPage);
                    const InstallSETranslator translator;
                    for (int round = 0; round < 50; ++round) {
                        EXPECT_FALSE(IsCaught(WritePage));
                        mprotect(const_cast<char*>(page), PageBytes, PROT_NONE);
                        EXPECT_FALSE(IsCaught(ReadPage));
                        munmap(const_cast<char*>(page), PageBytes);
                    }
                    EXPECT_EQ(calls, 100);
                    EXPECT_TRUE(IsCaught(ReadNull)) << "no handler can repair this";
                }),
                ExitedWithCode(0), "");
}

TEST(FaultHosts, FaultThatTheHandlerDoesNotRepairIsThrown)
{
    EXPECT_EXIT(RunAndExit([] {
                    MakePage(PROT_READ);
                    Handle([](int, siginfo_t*, void*) { ++calls; });
                    const InstallSETranslator translator;
                    EXPECT_FALSE(IsCaught(ReadPage));
                    EXPECT_EQ(calls, 0);
                    EXPECT_TRUE(IsCaught(WritePage));
                    EXPECT_TRUE(IsCaught(WritePage));
                    EXPECT_EQ(calls, 2);
                }),
                ExitedWithCode(0), "");
}

sigjmp_buf host;

/// Calls code that the compiler has not made:  xor eax, eax; mov eax, [eax]; ret
void RunGeneratedCode()
{
    constexpr unsigned char code[] = {0x31, 0xC0, 0x8B, 0x00, 0xC3};
    MakePage(PROT_READ | PROT_WRITE | PROT_EXEC);
    std::memcpy(const_cast<char*>(page), code, sizeof code);
    reinterpret_cast<Faulting>(const_cast<char*>(page))();
}

TEST(FaultHosts, GeneratedCodeBelongsToTheHost)
{
    EXPECT_EXIT(RunAndExit([] {
                    Handle([](int, siginfo_t*, void*) { siglongjmp(host, 1); });
                    const InstallSETranslator translator;
                    for (calls = 0; calls < 3; ++calls) {
                        if (sigsetjmp(host, 1) == 0) {
                            EXPECT_FALSE(IsCaught(RunGeneratedCode));
                        }
                        EXPECT_TRUE(IsCaught(ReadNull)) << "after the host's handler has left";
                    }
                }),
                ExitedWithCode(0), "");
    EXPECT_EXIT(RunAndExit([] {
                    const InstallSETranslator translator;
                    IsCaught(RunGeneratedCode);
                }),
                KilledBySignal(SIGSEGV), DESCRIBED "it is in code of no loaded file");
}

struct sigaction replaced;

TEST(FaultHosts, HandlerInstalledLaterIsNoticedByTheNextInstall)
{
    EXPECT_EXIT(RunAndExit([] {
                    Handle([](int, siginfo_t*, void*) { _exit(calls == 1 && !testing::Test::HasFailure() ? 45 : 2); });
                    InstallSETranslator translator;
                    sigaction(SIGSEGV, nullptr, &replaced);
                    Handle([](int signal, siginfo_t* info, void* context) {
                        ++calls;
                        replaced.sa_sigaction(signal, info, context);
                    });
                    EXPECT_TRUE(IsCaught(ReadNull)) << "the later handler passes it on";
                    translator.install();
                    EXPECT_TRUE(IsCaught(ReadNull));
                    EXPECT_EQ(calls, 1) << "the translator comes first again";
                    calls = 0;
                    translator.uninstall();
                    ReadNull();  // the later handler, then the first one
                }),
                ExitedWithCode(45), "");
}

void OnThread(Faulting function)
{
    std::thread(function).join();
}

TEST(FaultHosts, ChainedHandlerRunsAsTheKernelWouldHaveRunIt)
{
    for (const int flags : {0, static_cast<int>(SA_NODEFER)}) {
        EXPECT_EXIT(RunAndExit([] {
                        Handle(
                            [](int, siginfo_t*, void*) {
                                sigset_t mask;
                                pthread_sigmask(SIG_BLOCK, nullptr, &mask);
                                _exit(10 + (sigismember(&mask, SIGUSR2) != 0 ? 2 : 0) +
                                      (sigismember(&mask, SIGSEGV) != 0 ? 1 : 0));
                            },
                            std::getenv("NODEFER") != nullptr ? SA_NODEFER : 0, SIGUSR2);
                        const InstallSETranslator translator;
                        OnThread(ReadNull);
                    }),
                    ExitedWithCode(13 - (flags != 0 ? 1 : 0)), "");
        setenv("NODEFER", "1", 1);
    }
    unsetenv("NODEFER");
    EXPECT_EXIT(RunAndExit([] {
                    MakePage(PROT_NONE);
                    Handle(RepairPage, static_cast<int>(SA_RESETHAND));
                    const InstallSETranslator translator;
                    OnThread(ReadPage);
                    mprotect(const_cast<char*>(page), PageBytes, PROT_NONE);
                    if (calls == 1)
                        OnThread(ReadPage);
                }),
                KilledBySignal(SIGSEGV), "");
}

// Faults that would not reach a handler.

void WithoutAHandler()
{
    Invoke(ReadNull);
}
void HandlerOfAnotherType()
{
    try {
        Invoke(ReadNull);
    } catch (const std::bad_exception&) {
    } catch (int) {
    }
}
void BelowNoexcept()
{
    IsCaught([]() noexcept { Invoke(ReadNull); });
}
void InDestructor()
{
    struct Faults {
        ~Faults() { Invoke(ReadNull); }
    };
    IsCaught([] { const Faults faults; });
}
/// The compiler assumes that the call cannot throw, and so leaves it out of the block.
void InMemcpy()
{
    try {
        char target[16];
        std::memcpy(target, testkit::Null<char>, static_cast<std::size_t>(testkit::Zero) + sizeof target);
        testkit::Target = target[0];
        Invoke([] {});
    } catch (const std::exception&) {
    }
}

TEST(FaultsWithoutAHandler, EndTheProcessByTheirSignalWithADescription)
{
    if (IsSanitized)
        GTEST_SKIP() << "a sanitizer reports some of these accesses itself, and adds frames to all";
    constexpr Faulting works[] = {WithoutAHandler, HandlerOfAnotherType, BelowNoexcept, InDestructor, InMemcpy};
    static Faulting work = nullptr;
    for (const Faulting each : works) {
        work = each;
        EXPECT_EXIT(RunAndExit([] {
                        OnThread([] {  // the test framework itself has handlers on the first thread
                            const InstallSETranslator translator;
                            work();
                        });
                    }),
                    KilledBySignal(SIGSEGV), DESCRIBED)
            << &each - &works[0];
    }
}

/// Damages the free blocks of the heap, so that the allocator follows a wild pointer while it holds its lock.
void AllocateFromDamagedHeap()
{
    void* volatile blocks[64];
    for (void* volatile& block : blocks)
        block = std::malloc(2000);
    for (std::size_t i = 0; i < 64; i += 2)
        std::free(blocks[i]);
    for (std::size_t i = 0; i < 64; i += 2)
        std::memset(blocks[i], 0x11, 32);
    for (;;)
        blocks[0] = std::malloc(3000);
}

TEST(FaultsWithoutAHandler, FaultOfTheAllocatorDoesNotHang)
{
    if (IsSanitized)
        GTEST_SKIP() << "sanitizers have their own allocator";
    EXPECT_EXIT(RunAndExit([] {
                    const InstallSETranslator translator;
                    IsCaught(AllocateFromDamagedHeap);
                }),
                KilledBySignal(SIGSEGV), DESCRIBED "it is inside the memory allocator");
}

TEST(FaultsWithoutAHandler, FaultOfTheDynamicLinkerDoesNotHang)
{
    EXPECT_EXIT(RunAndExit([] {
                    const InstallSETranslator translator;
                    IsCaught([] {
                        void* (*volatile find)(void*, const char*) = dlsym;
                        find(reinterpret_cast<void*>(std::uintptr_t{0x1234567}), "name");
                    });
                }),
                KilledBySignal(SIGSEGV), DESCRIBED);
}

#ifdef __x86_64__
#define CALL_WITH_WILD_STACK "movq %0, %%rsp\n\tmovq %0, %%rbp\n\tjmp *%1"
#else
#define CALL_WITH_WILD_STACK "movl %0, %%esp\n\tmovl %0, %%ebp\n\tjmp *%1"
#endif

TEST(FaultsWithoutAHandler, DamagedStackDoesNotHang)
{
    EXPECT_EXIT(RunAndExit([] {
                    const InstallSETranslator translator;
                    IsCaught([] {
                        asm volatile(CALL_WITH_WILD_STACK : : "r"(std::uintptr_t{0x10000}), "r"(testkit::Null<void>));
                    });
                }),
                KilledBySignal(SIGSEGV), DESCRIBED);
}

#ifdef __x86_64__
TEST(FaultsWithoutAHandler, EndTheProcessAtTheFailingInstruction)
{
    if (IsSanitized)
        GTEST_SKIP() << "sanitizers trace their processes";
    const pid_t child = fork();
    if (child == 0) {
        RunAndExit([] {
            const InstallSETranslator translator;
            ptrace(PTRACE_TRACEME, 0, nullptr, nullptr);
            BelowNoexcept();
        });
    }
    unsigned long long first = 0;
    user_regs_struct registers{};
    int status = 0;
    while (waitpid(child, &status, 0) == child && WIFSTOPPED(status)) {
        ptrace(PTRACE_GETREGS, child, nullptr, &registers);
        if (first == 0)
            first = registers.rip;
        ptrace(PTRACE_CONT, child, nullptr, WSTOPSIG(status));
    }
    if (first == 0)
        GTEST_SKIP() << "this account may not trace its processes";
    EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGSEGV);
    EXPECT_EQ(registers.rip, first);
}
#endif

// Threads.

TEST(FaultsOfThreads, ThreadThatBlocksItsSignalsIsProtected)
{
    EXPECT_EXIT(RunAndExit([] {
                    sigset_t all;
                    sigset_t after;
                    sigfillset(&all);
                    pthread_sigmask(SIG_BLOCK, &all, nullptr);
                    {
                        InstallSETranslator translator;
                        translator.install();
                        EXPECT_TRUE(IsCaught(ReadNull));
                        pthread_sigmask(SIG_BLOCK, nullptr, &after);
                        EXPECT_EQ(sigismember(&after, SIGTERM), 1) << "of other signals";
                    }
                    pthread_sigmask(SIG_BLOCK, nullptr, &after);
                    for (const int signal : {SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGTRAP})
                        EXPECT_EQ(sigismember(&after, signal), 1) << signal;
                    sigemptyset(&all);
                    pthread_sigmask(SIG_SETMASK, &all, nullptr);
                    {
                        const InstallSETranslator translator;
                    }
                    pthread_sigmask(SIG_BLOCK, nullptr, &after);
                    EXPECT_EQ(sigismember(&after, SIGSEGV), 0) << "was not blocked before";
                }),
                ExitedWithCode(0), "");
}

std::jmp_buf left;

TEST(FaultsOfThreads, TranslatorMayLeaveByLongjmp)
{
    EXPECT_EXIT(RunAndExit([] {
                    _set_se_translator([](unsigned int, EXCEPTION_POINTERS*) { std::longjmp(left, 1); });
                    volatile int rounds = 0;
                    setjmp(left);
                    rounds = rounds + 1;
                    if (rounds < 4)
                        IsCaught(rounds == 2 ? [] { Invoke(ReadNull); } : ReadNull);
                    EXPECT_EQ(rounds, 4);
                }),
                ExitedWithCode(0), "");
}

TEST(FaultsOfThreads, FaultNeedsNoMemory)
{
    if (IsSanitized)
        GTEST_SKIP() << "sanitizers need memory themselves";
    EXPECT_EXIT(
        RunAndExit([] {
            const InstallSETranslator translator;
            for (int used = 0; used < 20; ++used)
                EXPECT_TRUE(IsCaught(ReadNull));
            const rlimit none{1, 1};
            setrlimit(RLIMIT_AS, &none);
            for (std::size_t bytes = 1 << 20; bytes >= 8; bytes = bytes > 4096 ? bytes / 2 : bytes - 8) {
                while (std::malloc(bytes) != nullptr) {
                }
            }
            try {
                Invoke(ReadNull);
            } catch (const std::exception& fault) {
                _exit(std::strstr(fault.what(), "attempted to read from a virtual address") != nullptr ? 46 : 2);
            }
        }),
        ExitedWithCode(46), "");
}

}  // namespace
