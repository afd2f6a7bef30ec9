// Faults of the processor as exceptions, and their texts.
#include "errors/structured_exception.h"
#include "tessmaru/structured_exception.h"
#include "testkit/faulting_calls.h"
#include "testkit/open_handles.h"
#include "testkit/scratch_folder.h"
#include "testkit/test_process.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <exception>
#include <string>
#include <thread>
#include <type_traits>
#include <utility>
#include <vector>

using testkit::Faulting;
using testkit::Invoke;
using testkit::ReadNull;
using testkit::RunAlone;
using testkit::ScratchFolder;

namespace {

std::string Describe(DWORD code, std::uintptr_t address, ULONG_PTR word0 = 0, ULONG_PTR word1 = 0)
{
    EXCEPTION_RECORD record{};
    record.ExceptionAddress = reinterpret_cast<PVOID>(address);
    record.ExceptionInformation[0] = word0;
    record.ExceptionInformation[1] = word1;
    EXCEPTION_POINTERS pointers{&record, nullptr};
    return describeStructuredException(code, &pointers);
}

TEST(StructuredExceptionText, NamesTheAccess)
{
    const std::string start = "SE exception at address 0x00401AF0: The thread attempted to ";
    const std::string end = " for which it does not have the appropriate access. ";
    EXPECT_EQ(Describe(0xC0000005, 0x401AF0, 0, 0), start + "read from a virtual address at 0x00000000" + end);
    for (const ULONG_PTR kind : {1U, 8U})
        EXPECT_EQ(Describe(0xC0000005, 0x401AF0, kind, 0xFEDCBA98),
                  start + "write to a virtual address at 0xFEDCBA98" + end);
    EXPECT_EQ(Describe(0xC0000005, ~std::uintptr_t{0}).substr(24, 3 + 2 * sizeof(void*)),
              "0x" + std::string(2 * sizeof(void*), 'F') + ":")
        << "all digits of an address";
}

TEST(StructuredExceptionText, DescribesEachCode)
{
    const std::pair<DWORD, const char*> rows[] = {
        {0x80000002,
         "The thread attempted to read or write data that is misaligned on hardware that does not provide alignment. "
         "For example, 16-bit values must be aligned on 2-byte boundaries, 32-bit values on 4-byte boundaries, and so "
         "on. "},
        {0x80000004,
         "A trace trap or other single-instruction mechanism signaled that one instruction has been executed. "},
        {0xC0000025, "The thread attempted to continue execution after a noncontinuable exception occurred. "},
        {0xC000008C,
         "The thread attempted to access an array element that is out of bounds, and the underlying hardware supports "
         "bounds checking. "},
        {0xC000008D,
         "One of the operands in a floating-point operation is denormal. A denormal value is one that is too small to "
         "represent as a standard floating-point value. "},
        {0xC000008E, "The thread attempted to divide a floating-point value by a floating-point divisor of zero. "},
        {0xC000008F, "The result of a floating-point operation cannot be represented exactly as a decimal fraction. "},
        {0xC0000090, "This exception represents any floating-point exception not included in this list. "},
        {0xC0000091,
         "The exponent of a floating-point operation is greater than the magnitude allowed by the corresponding "
         "type. "},
        {0xC0000092, "The stack overflowed or underflowed as the result of a floating-point operation. "},
        {0xC0000093,
         "The exponent of a floating-point operation is less than the magnitude allowed by the corresponding type. "},
        {0xC0000094, "The thread attempted to divide an integer value by an integer divisor of zero. "},
        {0xC0000095,
         "The result of an integer operation caused a carry out of the most significant bit of the result. "},
        {0xC0000096,
         "The thread attempted to execute an instruction whose operation is not allowed in the current machine mode. "},
    };
    for (const auto& [code, text] : rows)
        EXPECT_EQ(Describe(code, 0x1234), std::string("SE exception at address 0x00001234: ") + text);
    for (const DWORD code : {0x80000003U, 0xC000001DU, 0xC000008BU, 0xC0000097U, 0xC00000FDU, 0x1FU}) {
        char expected[64];
        std::snprintf(expected, sizeof expected, "SE exception at address 0x00001234: Code: 0x%08X",
                      static_cast<unsigned>(code));
        EXPECT_EQ(Describe(code, 0x1234), expected);
    }
}

/// A function that faults, and a part of the fault's text.
struct Kind {
    Faulting Function;
    const char* Text;
};

constexpr Kind Kinds[] = {
    {testkit::ReadNull, "attempted to read from a virtual address at 0x00000000 for"},
    {testkit::WriteNull, "attempted to write to a virtual address at 0x00000000 for"},
    {testkit::DivideByZero, "attempted to divide an integer value by an integer divisor of zero. "},
    {testkit::RunIllegal, "Code: 0xC000001D"},
    {testkit::RunBreakpoint, "Code: 0x80000003"},
    {testkit::RunPrivileged, "not allowed in the current machine mode. "},
    {testkit::CallNull, "SE exception at address 0x00000000: The thread attempted to "},
};

/// Counts the objects that unwinding has destroyed.
class Witness {
public:
    explicit Witness(int& destroyed) : Destroyed(destroyed) {}
    Witness(const Witness&) = delete;
    Witness& operator=(const Witness&) = delete;
    ~Witness() { ++Destroyed; }

private:
    int& Destroyed;
};

[[gnu::noinline]] void RunWatched(Faulting function, int& destroyed)
{
    const Witness outer(destroyed);
    const Witness inner(destroyed);
    Invoke(function);
}

void ExpectAllTranslated()
{
    const InstallSETranslator translator;
    for (const Kind& kind : Kinds) {
        std::string text;
        int destroyed = 0;
        try {
            RunWatched(kind.Function, destroyed);
        } catch (const std::exception& fault) {
            EXPECT_NE(dynamic_cast<const structured_exception*>(&fault), nullptr);
            text = fault.what();
        }
        EXPECT_NE(text.find(kind.Text), std::string::npos) << "for " << kind.Text << ": " << text;
        EXPECT_EQ(destroyed, 2) << kind.Text;
    }
}

TEST(Faults, AreThrownOnEachThreadWithATranslator)
{
    ExpectAllTranslated();
    std::thread(ExpectAllTranslated).join();
}

#ifndef __clang__  // clang drops handlers around a single access, with any flags
TESSMARU_FAULTING int StepsOfAFault()
{
    volatile int steps = 1;
    try {
        testkit::Target = *testkit::Null<int>;
        steps = 2;
    } catch (const structured_exception&) {
        steps = steps + 10;
    }
    return steps;
}

TEST(Faults, ReachAHandlerInTheFaultingFunction)
{
    const InstallSETranslator translator;
    EXPECT_EQ(StepsOfAFault(), 11);
}
#endif

TEST(Faults, KeepTheirTextInCopies)
{
    static_assert(std::is_base_of_v<std::exception, structured_exception>);
    static_assert(!std::is_base_of_v<std::runtime_error, structured_exception>, "no handler of another kind takes it");
    structured_exception copy("made by hand");
    EXPECT_STREQ(copy.what(), "made by hand");
    {
        const std::string text = "a text that does not fit into the object itself";
        const structured_exception made(text.c_str());
        copy = structured_exception(made);
    }
    EXPECT_STREQ(copy.what(), "a text that does not fit into the object itself");
}

TEST(Faults, CanBeRepeated)
{
    ExpectAllTranslated();  // the first exception opens handles that the runtime keeps
    const int handles = testkit::OpenHandles();
    for (int i = 0; i < 100; ++i)
        ExpectAllTranslated();
    EXPECT_EQ(testkit::OpenHandles(), handles);
}

TEST(Faults, MayBeKeptInAnyNumber)
{
    const InstallSETranslator translator;
    std::vector<std::exception_ptr> kept;
    for (std::uintptr_t i = 0; i < 40; ++i) {
        try {
            Invoke(i % 2 == 0 ? ReadNull : testkit::WriteNull);
        } catch (...) {
            kept.push_back(std::current_exception());
        }
    }
    for (std::size_t i = 0; i < kept.size(); ++i) {
        try {
            std::rethrow_exception(kept[i]);
        } catch (const structured_exception& fault) {
            const char* const access = i % 2 == 0 ? "read from" : "write to";
            EXPECT_NE(std::string(fault.what()).find(access), std::string::npos) << fault.what();
        }
    }
    EXPECT_EQ(kept.size(), 40U);
}

TEST(Faults, OfSeveralThreadsAtOnceStayApart)
{
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back([] {
            for (int round = 0; round < 100; ++round)
                ExpectAllTranslated();
        });
    }
    for (std::thread& thread : threads)
        thread.join();
}

TEST(InstallSETranslator, CanBeInstalledAgain)
{
    InstallSETranslator translator;
    translator.install();
    EXPECT_THROW(Invoke(ReadNull), structured_exception);
    translator.uninstall();
    translator.uninstall();
    translator.install();
    EXPECT_THROW(Invoke(ReadNull), structured_exception);
}

/// Faults within a handler that must not be reached.
[[noreturn]] void FaultUntranslated()
{
    try {
        Invoke(ReadNull);
    } catch (...) {
    }
    std::_Exit(0);
}

TEST(InstallSETranslator, ProtectsItsOwnThreadUntilItsEnd)
{
    constexpr void (*works[])(const ScratchFolder&) = {
        [](const ScratchFolder&) {
            const InstallSETranslator translator;
            std::thread(FaultUntranslated).join();
        },
        [](const ScratchFolder&) {
            InstallSETranslator translator;
            translator.uninstall();
            FaultUntranslated();
        },
        [](const ScratchFolder&) {
            const InstallSETranslator outer;
            {
                const InstallSETranslator inner;
            }
            FaultUntranslated();  // they do not nest
        },
    };
    for (const auto& work : works) {
        const ScratchFolder folder;
        EXPECT_NE(testkit::TestProcess(folder, work).Wait(), 0) << "the fault was caught, in case " << &work - works;
    }
}

}  // namespace
