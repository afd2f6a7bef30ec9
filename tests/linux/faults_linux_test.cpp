// Faults of the processor on Linux: signals, records, stacks, and faults that are not translated.
#include "errors/structured_exception.h"
#include "tessmaru/structured_exception.h"
#include "testkit/faulting_calls.h"
#include "testkit/linux/child.h"
#include "testkit/linux/failing_allocation.h"

#include <gtest/gtest.h>

#include <csignal>
#include <fstream>
#include <malloc.h>
#include <string>
#include <sys/mman.h>
#include <thread>
#include <utility>

using testkit::Faulting;
using testkit::Invoke;
using testkit::ReadNull;

namespace {

#ifdef __SANITIZE_THREAD__
constexpr bool IsThreadSanitized = true;
#else
constexpr bool IsThreadSanitized = false;
#endif

constexpr int FaultSignals[] = {SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGTRAP};

/// Runs `work` with the default handlers of all fault signals, also in place of a sanitizer's, and ends the process:
/// with 0 if all expectations held. For EXPECT_EXIT, in whose process no earlier test has set a handler.
template <class Work>
[[noreturn]] void RunAndExit(Work work)
{
    for (const int signal : FaultSignals)
        std::signal(signal, SIG_DFL);
    work();
    _exit(testing::Test::HasFailure() ? 1 : 0);
}

/// Runs `work` in a separate process, which has to end with 0.
template <class Work>
void RunAlone(Work work)
{
    EXPECT_EXIT(RunAndExit(work), testing::ExitedWithCode(0), "");
}

EXCEPTION_RECORD seen;

/// A translator that keeps the record and throws the code.
void ThrowCode(unsigned int code, EXCEPTION_POINTERS* info)
{
    seen = *info->ExceptionRecord;
    throw code;
}

/// The code of a function's fault, or 0 if it has none.
unsigned int CodeOf(Faulting function)
{
    try {
        Invoke(function);
    } catch (unsigned int code) {
        return code;
    }
    return 0;
}

// Faults and their records.

constexpr double Huge = 1e308;
constexpr double Tiny = 1e-308;
const double tinier = Tiny / 1e10;  // denormal
const double third[] = {0, 1, 3, Huge, Tiny, 10};

/// A division with one kind of fault enabled, from the invalid operation (1) to the inexact result (32).
template <unsigned int Kind>
[[gnu::noinline, gnu::target("sse2")]] void DivideSse(const double& dividend, const double& divisor)
{
    const unsigned int control = 0x1F80 & ~(Kind << 7);
    asm volatile("ldmxcsr %0\n\tmovsd %1, %%xmm0\n\tdivsd %2, %%xmm0"
                 :
                 : "m"(control), "m"(dividend), "m"(divisor)
                 : "xmm0");
}

template <unsigned int Kind>
[[gnu::noinline]] void DivideX87(const double& dividend, const double& divisor)
{
    const unsigned short control = 0x27F & ~Kind;  // 53 bits, but 15 of exponent
    double stored = 0;
    asm volatile("fldcw %1\n\tfldl %2\n\tfdivl %3\n\tfstpl %0\n\tfwait"
                 : "=m"(stored)
                 : "m"(control), "m"(dividend), "m"(divisor)
                 : "st");
}

void OverflowX87Stack()
{
    const unsigned short control = 0x37E;
    asm volatile("fldcw %0\n\tfld1\n\tfld1\n\tfld1\n\tfld1\n\tfld1\n\tfld1\n\tfld1\n\tfld1\n\tfld1\n\tfwait"
                 :
                 : "m"(control));
}

constexpr std::pair<Faulting, DWORD> FloatKinds[] = {
    {[] { DivideSse<1>(third[0], third[0]); }, EXCEPTION_FLT_INVALID_OPERATION},
    {[] { DivideSse<2>(tinier, third[1]); }, EXCEPTION_FLT_DENORMAL_OPERAND},
    {[] { DivideSse<4>(third[1], third[0]); }, EXCEPTION_FLT_DIVIDE_BY_ZERO},
    {[] { DivideSse<8>(third[3], third[4]); }, EXCEPTION_FLT_OVERFLOW},
    {[] { DivideSse<16>(third[4], third[3]); }, EXCEPTION_FLT_UNDERFLOW},
    {[] { DivideSse<32>(third[1], third[2]); }, EXCEPTION_FLT_INEXACT_RESULT},
    {[] { DivideX87<1>(third[0], third[0]); }, EXCEPTION_FLT_INVALID_OPERATION},
    {[] { DivideX87<2>(tinier, third[1]); }, EXCEPTION_FLT_DENORMAL_OPERAND},
    {[] { DivideX87<4>(third[1], third[0]); }, EXCEPTION_FLT_DIVIDE_BY_ZERO},
    {[] { DivideX87<8>(third[3], third[4]); }, EXCEPTION_FLT_OVERFLOW},
    {[] { DivideX87<16>(third[4], third[3]); }, EXCEPTION_FLT_UNDERFLOW},
    {[] { DivideX87<32>(third[1], third[2]); }, EXCEPTION_FLT_INEXACT_RESULT},
    {OverflowX87Stack, EXCEPTION_FLT_STACK_CHECK},
};

TEST(FaultsOnLinux, FloatingPointFaultsHaveTheirCodesAndLeaveTheUnitUsable)
{
    RunAlone([] {
        _set_se_translator(ThrowCode);
        for (int round = 0; round < 3; ++round) {
            for (const auto& [function, code] : FloatKinds) {
                EXPECT_EQ(CodeOf(function), code) << "kind " << &function - &FloatKinds[0].first;
                unsigned int status = ~0U;
                asm volatile("stmxcsr %0" : "=m"(status));
                EXPECT_EQ(status & 0x3F, 0U) << "nothing is pending";
                // All eight registers of the x87 unit are free.
                double sum = 0;
                asm volatile(
                    "fldz\n\tfld1\n\tfld1\n\tfld1\n\tfld1\n\tfld1\n\tfld1\n\tfld1\n\t"
                    "faddp\n\tfaddp\n\tfaddp\n\tfaddp\n\tfaddp\n\tfaddp\n\tfaddp\n\tfstpl %0\n\tfninit"
                    : "=m"(sum));
                EXPECT_EQ(sum, 7);
            }
        }
    });
}

constexpr int Least = -2147483647 - 1;
volatile int least = Least;
thread_local volatile int minusOne = -1;
thread_local volatile int none = 0;

TESSMARU_FAULTING void DivideLeast()
{
    testkit::Target = least / minusOne;
}
TESSMARU_FAULTING void DivideByThreadsZero()
{
    testkit::Target = least / none;
}
void DivideBytes()
{
    asm volatile("movw $0x7FFF, %%ax\n\tmovb $1, %%ch\n\tdivb %%ch" : : : "eax", "ecx");
}
void DivideBytesByZero()
{
    asm volatile("movb $1, %%cl\n\tmovb $0, %%ch\n\tdivb %%ch" : : : "eax", "ecx");
}
const short divisors[] = {7, 0, 1};
void DivideShorts()
{
    asm volatile("movw $5, %%dx\n\tdivw -2(%0, %1, 2)" : : "r"(divisors), "r"(std::intptr_t{3}) : "eax", "edx");
}
void DivideShortsByZero()
{
    asm volatile("movw $5, %%dx\n\tdivw (%0, %1, 2)" : : "r"(divisors), "r"(std::intptr_t{1}) : "eax", "edx");
}
#ifdef __x86_64__
void DivideIndexedByNewRegister()
{
    asm volatile("movw $5, %%dx\n\tmovl $1, %%r12d\n\tdivw (%0, %%r12, 2)" : : "r"(divisors + 1) : "eax", "edx", "r12");
}
#endif

TEST(FaultsOnLinux, OverflowOfADivisionIsNotADivisionByZero)
{
    RunAlone([] {
        _set_se_translator(ThrowCode);
        EXPECT_EQ(CodeOf(DivideLeast), EXCEPTION_INT_OVERFLOW);
        EXPECT_EQ(CodeOf(DivideBytes), EXCEPTION_INT_OVERFLOW);
        EXPECT_EQ(CodeOf(DivideShorts), EXCEPTION_INT_OVERFLOW);
#ifdef __x86_64__
        EXPECT_EQ(CodeOf(DivideIndexedByNewRegister), EXCEPTION_INT_OVERFLOW);
#endif
        EXPECT_EQ(CodeOf(DivideByThreadsZero), EXCEPTION_INT_DIVIDE_BY_ZERO);
        EXPECT_EQ(CodeOf(DivideBytesByZero), EXCEPTION_INT_DIVIDE_BY_ZERO);
        EXPECT_EQ(CodeOf(DivideShortsByZero), EXCEPTION_INT_DIVIDE_BY_ZERO);
    });
}

#ifdef __x86_64__
#define FLAGS "pushfq\n\torq %0, (%%rsp)\n\tpopfq\n\t"
#else
#define FLAGS "pushfl\n\torl %0, (%%esp)\n\tpopfl\n\t"
#endif

void StepOnce()
{
    asm volatile(FLAGS "nop" : : "i"(0x100));
}
void ReadMisaligned()
{
    alignas(8) static const char data[16]{};
    asm volatile(FLAGS "movl 1(%1), %%eax" : : "i"(0x40000), "r"(data) : "eax");
}
void FailBackwards()
{
    asm volatile("std\n\tmovl (%0), %%eax" : : "r"(std::intptr_t{16}) : "eax");
}
void ReadBeyondEndOfFile()
{
    std::FILE* const file = std::tmpfile();
    void* const page = mmap(nullptr, 4096, PROT_READ, MAP_SHARED, fileno(file), 0);
    testkit::Target = *static_cast<volatile char*>(page);
}

bool RunsForward()
{
    std::uintptr_t flags = 0;
    asm volatile("pushf\n\tpop %0" : "=r"(flags));
    return (flags & 0x40500) == 0;
}

void ExpectAccess(ULONG_PTR kind, std::uintptr_t address)
{
    EXPECT_EQ(seen.NumberParameters, 2U);
    EXPECT_EQ(seen.ExceptionInformation[0], kind);
    EXPECT_EQ(seen.ExceptionInformation[1], address);
}

TEST(FaultsOnLinux, RecordDescribesTheFault)
{
    RunAlone([] {
        _set_se_translator(ThrowCode);
        constexpr std::pair<Faulting, DWORD> rows[] = {
            {StepOnce, EXCEPTION_SINGLE_STEP},
            {ReadMisaligned, EXCEPTION_DATATYPE_MISALIGNMENT},
            {FailBackwards, EXCEPTION_ACCESS_VIOLATION},
            {ReadBeyondEndOfFile, EXCEPTION_ACCESS_VIOLATION},
        };
        for (const auto& [function, code] : rows) {
            EXPECT_EQ(CodeOf(function), code);
            EXPECT_TRUE(RunsForward()) << std::hex << code;
        }
        EXPECT_EQ(CodeOf(ReadNull), EXCEPTION_ACCESS_VIOLATION);
        ExpectAccess(0, 0);
        EXPECT_EQ(CodeOf(testkit::WriteNull), EXCEPTION_ACCESS_VIOLATION);
        ExpectAccess(1, 0);
        EXPECT_EQ(CodeOf(testkit::CallNull), EXCEPTION_ACCESS_VIOLATION);
        EXPECT_EQ(seen.ExceptionAddress, nullptr);
        ExpectAccess(8, 0);
        EXPECT_EQ(CodeOf(testkit::RunBreakpoint), EXCEPTION_BREAKPOINT);
        EXPECT_EQ(*static_cast<BYTE*>(seen.ExceptionAddress), 0xCC);
    });
}

#ifdef __x86_64__
void ReadImpossibleAddress()
{
    asm volatile("movl (%0), %%eax" : : "r"(0x8000000000000000) : "eax");
}

/// Faults after it has saved a register in the red zone, as an optimised leaf function may.
extern "C" void fail_with_red_zone();
extern "C" void call_null_without_frame_pointer();
__asm__(R"(
    .text
fail_with_red_zone:
    .cfi_startproc
    movq %rbx, -16(%rsp)
    .cfi_offset rbx, -24
    xorl %ebx, %ebx
    movl (%rbx), %eax
    .cfi_endproc
call_null_without_frame_pointer:
    .cfi_startproc
    subq $24, %rsp
    .cfi_adjust_cfa_offset 24
    movq $0, 16(%rsp)
    xorl %eax, %eax
    call *%rax
    ud2
    .cfi_endproc
)");

TEST(FaultsOnLinux, OnX64AddressesMayBeNoncanonicalAndStacksHaveRedZones)
{
    if (IsThreadSanitized)
        GTEST_SKIP() << "the thread sanitizer uses the register that this test checks";
    RunAlone([] {
        _set_se_translator(ThrowCode);
        EXPECT_EQ(CodeOf(ReadImpossibleAddress), EXCEPTION_ACCESS_VIOLATION);
        ExpectAccess(0, ~std::uintptr_t{0});
        EXPECT_EQ(CodeOf(call_null_without_frame_pointer), EXCEPTION_ACCESS_VIOLATION);
        Faulting volatile fail = fail_with_red_zone;
        volatile std::uintptr_t before = 0;
        std::uintptr_t after = 1;
        asm volatile("movq %%rbx, %0" : "=m"(before));
        try {
            fail();
        } catch (unsigned int) {
            asm volatile("movq %%rbx, %0" : "=m"(after));
        }
        EXPECT_EQ(after, before);
    });
}
#endif

// Stacks and memory.

TESSMARU_FAULTING int Recurse(int depth)
{
    volatile char block[600];
    block[0] = static_cast<char>(depth);
    if (testkit::Zero != 0)
        return *testkit::Null<int>;  // a possible fault: without one the compiler keeps no handler for this function
    return Recurse(depth + 1) + block[0];
}

void OverflowStack()
{
    testkit::Target = Recurse(0);
}

void ExpectOverflows()
{
    _set_se_translator(ThrowCode);
    for (int round = 0; round < 3; ++round)
        EXPECT_EQ(CodeOf(OverflowStack), EXCEPTION_STACK_OVERFLOW);
    EXPECT_EQ(CodeOf(ReadNull), EXCEPTION_ACCESS_VIOLATION);
}

TEST(FaultsOnLinux, StackOverflowIsTranslatedOnEachThread)
{
    if (IsThreadSanitized)
        GTEST_SKIP()
            << "the thread sanitizer makes each frame call a function at its end, for which the stack has no room";
    RunAlone([] {
        ExpectOverflows();
        std::thread(ExpectOverflows).join();
    });
}

std::ptrdiff_t Mappings()
{
    std::ifstream maps("/proc/self/maps");
    std::ptrdiff_t lines = 0;
    for (std::string line; std::getline(maps, line);)
        ++lines;
    return lines;
}

TEST(FaultsOnLinux, ThreadsAndFaultsLeakNothing)
{
    if (IsThreadSanitized)
        GTEST_SKIP() << "the thread sanitizer maps memory itself";
    RunAlone([] {
        const auto round = [] {
            std::thread([] {
                _set_se_translator(ThrowCode);
                for (int i = 0; i < 100; ++i)
                    CodeOf(ReadNull);
            }).join();
        };
        round();
        const std::ptrdiff_t mappings = Mappings();
        const auto bytes = mallinfo2().uordblks;
        for (int i = 0; i < 100; ++i)
            round();
        EXPECT_LE(Mappings(), mappings + 50);
        EXPECT_LE(mallinfo2().uordblks, bytes + 10000);
    });
}

TEST(FaultsOnLinux, OutOfMemoryIsReportedInTheText)
{
    EXCEPTION_RECORD record{};
    EXCEPTION_POINTERS pointers{&record, nullptr};
    testkit::FailAllocation(1);
    const std::string text = describeStructuredException(EXCEPTION_ACCESS_VIOLATION, &pointers);
    EXPECT_TRUE(testkit::AllocationFailed());
    testkit::FailAllocation(0);
    EXPECT_EQ(text, "(Error extracting exception information: std::ex - std::bad_alloc)");
}

// Faults that are not translated.

void OnUnprotectedThread(Faulting function)
{
    const InstallSETranslator translator;
    std::thread([function] {
        try {
            Invoke(function);
        } catch (...) {
        }
        _exit(77);
    }).join();
}

TEST(FaultsOnLinux, ThreadWithoutATranslatorEndsTheProcessByTheSignal)
{
    const struct {
        Faulting Function;
        int Signal;
    } rows[] = {{ReadNull, SIGSEGV},
                {ReadBeyondEndOfFile, SIGBUS},
                {testkit::DivideByZero, SIGFPE},
                {testkit::RunIllegal, SIGILL},
                {testkit::RunBreakpoint, SIGTRAP}};
    for (const auto& row : rows) {
        for (const auto former : {SIG_DFL, SIG_IGN}) {
            EXPECT_EXIT(RunAndExit([&] {
                            alarm(10);
                            std::signal(row.Signal, former);
                            OnUnprotectedThread(row.Function);
                        }),
                        testing::KilledBySignal(row.Signal), "")
                << "a fault cannot be ignored";
        }
    }
}

TEST(FaultsOnLinux, SettingATranslatorReturnsTheEarlierOne)
{
    RunAlone([] {
        EXPECT_EQ(_set_se_translator(ThrowCode), nullptr);
        {
            const InstallSETranslator translator;
        }
        EXPECT_EQ(_set_se_translator(ThrowCode), nullptr) << "uninstalling restores none";
        EXPECT_EQ(_set_se_translator(nullptr), ThrowCode);
    });
}

TEST(FaultsOnLinux, SentSignalsAreNotFaults)
{
    for (const int signal : FaultSignals) {
        EXPECT_EXIT(RunAndExit([signal] {
                        const InstallSETranslator translator;
                        try {
                            raise(signal);
                        } catch (...) {
                        }
                    }),
                    testing::KilledBySignal(signal), "");
        EXPECT_EXIT(RunAndExit([signal] {
                        std::signal(signal, SIG_IGN);
                        const InstallSETranslator translator;
                        raise(signal);
                    }),
                    testing::ExitedWithCode(0), "")
            << "was ignored before";
    }
}

TEST(FaultsOnLinux, TranslatorThatFaultsOrReturnsEndsTheProcess)
{
    EXPECT_EXIT(RunAndExit([] {
                    _set_se_translator([](unsigned int code, EXCEPTION_POINTERS*) {
                        if (code == EXCEPTION_ACCESS_VIOLATION)
                            _exit(78);
                        CodeOf(ReadNull);  // a handler in the translator does not help
                        _exit(79);
                    });
                    CodeOf(testkit::DivideByZero);
                }),
                testing::KilledBySignal(SIGSEGV), "");
    EXPECT_EXIT(RunAndExit([] {
                    _set_se_translator([](unsigned int, EXCEPTION_POINTERS*) {});
                    CodeOf(testkit::DivideByZero);
                }),
                testing::KilledBySignal(SIGFPE), "");
}

TEST(FaultsOnLinux, EarlierHandlerStillGetsItsFaults)
{
    EXPECT_EXIT(RunAndExit([] {
                    struct sigaction action {};
                    action.sa_flags = SA_SIGINFO;
                    action.sa_sigaction = [](int, siginfo_t* info, void*) { _exit(info->si_addr == nullptr ? 41 : 1); };
                    sigaction(SIGSEGV, &action, nullptr);
                    OnUnprotectedThread(ReadNull);
                }),
                testing::ExitedWithCode(41), "");
    EXPECT_EXIT(RunAndExit([] {
                    std::signal(SIGFPE, [](int) { _exit(42); });
                    OnUnprotectedThread(testkit::DivideByZero);
                }),
                testing::ExitedWithCode(42), "");
}

TEST(FaultsOnLinux, ChildKeepsTheTranslatorOfTheForkingThread)
{
    RunAlone([] {
        const InstallSETranslator translator;
        EXPECT_EQ(testkit::Child([] { EXPECT_THROW(Invoke(ReadNull), structured_exception); }).Wait(), 0);
        EXPECT_THROW(Invoke(ReadNull), structured_exception);
    });
}

}  // namespace
