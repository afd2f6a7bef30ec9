// Contract of identities: modules, processes, threads, the last error, critical sections and debug output.
#include "system.h"
#include "testkit/debug_output.h"
#include "testkit/file_content.h"
#include "testkit/known_modules.h"
#include "testkit/test_machine.h"
#include "testkit/test_process.h"
#include "testkit/text.h"

#include <gtest/gtest.h>

#include <atomic>
#include <thread>

using namespace utility::literals;
using platform::Wide;
using testkit::TestMachine;

namespace {

/// The result of `work` in another thread.
template <class Work>
auto Elsewhere(Work work)
{
    decltype(work()) result{};
    std::thread([&] { result = work(); }).join();
    return result;
}

TEST(Modules, ProgramAndLoadedModulesAreFound)
{
    const HMODULE program = GetModuleHandleW(nullptr);
    ASSERT_NE(program, nullptr);
    EXPECT_EQ(GetModuleHandleW(nullptr), program);
    ASSERT_NE(testkit::SystemModule(), nullptr);
    EXPECT_EQ(testkit::SystemModule(), testkit::SystemModule());
    EXPECT_NE(testkit::SystemModule(), program);
    for (const unsigned short* const name : {u"no such module"_w, u"no.such.module"_w, u"\\none\\module.x"_w}) {
        SetLastError(0);
        EXPECT_EQ(GetModuleHandleW(Wide(name)), nullptr) << testkit::Narrow(name);
        EXPECT_EQ(GetLastError(), DWORD{ERROR_MOD_NOT_FOUND}) << testkit::Narrow(name);
    }
}

TEST(Identity, ProcessHasItsOwnId)
{
    const TestMachine machine;
    testkit::TestProcess process(machine, [](const TestMachine& same) {
        testkit::WriteFile(same.Folder / "id", std::to_string(GetCurrentProcessId()));
        EXPECT_EQ(Elsewhere(GetCurrentProcessId), GetCurrentProcessId());
    });
    const std::string id = std::to_string(process.id());
    EXPECT_EQ(process.Wait(), 0);
    EXPECT_EQ(testkit::ReadFile(machine.Folder / "id"), id);
    EXPECT_NE(std::to_string(GetCurrentProcessId()), id);
}

TEST(Identity, RunningThreadsHaveDifferentIds)
{
    const DWORD own = GetCurrentThreadId();
    EXPECT_NE(own, 0U);
    Elsewhere([own] {
        const DWORD first = GetCurrentThreadId();
        EXPECT_NE(first, own);
        EXPECT_NE(Elsewhere(GetCurrentThreadId), first);
        EXPECT_EQ(GetCurrentThreadId(), first);
        return first;
    });
    EXPECT_EQ(GetCurrentThreadId(), own);
}

TEST(LastError, BelongsToTheThread)
{
    // The threads take turns without a call that could set an error.
    enum Turn { Here, There, Back };
    std::atomic<Turn> turn{Here};
    const auto await = [&turn](Turn wanted) {
        while (turn != wanted) {
        }
    };
    DWORD seen[3]{};
    std::thread other([&] {
        await(There);
        SetLastError(78);
        CloseHandle(nullptr);
        seen[2] = GetLastError();
        turn = Back;
    });
    SetLastError(77);
    turn = There;
    await(Back);
    seen[0] = GetLastError();
    seen[1] = GetLastError();
    other.join();
    EXPECT_EQ(seen[0], 77U);
    EXPECT_EQ(seen[1], 77U) << "reading it changes nothing";
    EXPECT_EQ(seen[2], DWORD{ERROR_INVALID_HANDLE});
}

TEST(CriticalSections, LetOneThreadInUntilItsLastLeave)
{
    CRITICAL_SECTION section;
    InitializeCriticalSection(&section);
    int plain = 0;
    std::thread threads[4];
    for (std::thread& thread : threads) {
        thread = std::thread([&] {
            for (int i = 0; i < 1000; ++i) {
                EnterCriticalSection(&section);
                EnterCriticalSection(&section);
                LeaveCriticalSection(&section);
                const int before = plain;
                std::this_thread::yield();
                plain = before + 1;
                LeaveCriticalSection(&section);
            }
        });
    }
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_EQ(plain, 4000);
    DeleteCriticalSection(&section);
}

TEST(DebugOutput, TextsAreWholeAndInOrder)
{
    const TestMachine machine;
    testkit::RunAlone(machine, [](const TestMachine& same) {
        testkit::SendDebugOutputTo(same.Folder / "output");
        OutputDebugStringW(Wide(u"one,"_w));
        OutputDebugStringW(Wide(u""_w));
        OutputDebugStringW(Wide(utility::wstring(10000, 'x').c_str()));
        OutputDebugStringW(Wide(u",%s\\two\n"_w));
    });
    EXPECT_EQ(testkit::ReadFile(machine.Folder / "output"), "one," + std::string(10000, 'x') + ",%s\\two\n");
}

}  // namespace
