// Contract of mutexes: found by name in the whole session, owned by threads, removed with their last handle.
#include "system.h"
#include "testkit/file_content.h"
#include "testkit/gate.h"
#include "testkit/test_machine.h"
#include "testkit/test_process.h"
#include "testkit/text.h"

#include <gtest/gtest.h>

#include <chrono>
#include <thread>
#include <vector>

using namespace utility::literals;
using namespace std::chrono_literals;
using platform::Wide;

namespace {

class MutexMachine : public testkit::TestMachine {
public:
    /// A name that only this test uses.
    utility::wstring Name(std::string_view end = "") const
    {
        return testkit::Wide(Folder.path().filename().string() + ".Mutex" + std::string(end));
    }
    HANDLE Create(BOOL owned = FALSE, std::string_view end = "") const { return CreateCalled(Name(end), owned); }

    static HANDLE CreateCalled(const utility::wstring& name, BOOL owned = FALSE)
    {
        return CreateMutexW(nullptr, owned, Wide(name.c_str()));
    }

    std::filesystem::path Counter() const { return Folder / "counter"; }
};

/// Waits for the mutex in another thread, which releases it at once. @return the result of the wait.
DWORD TryElsewhere(HANDLE mutex, DWORD limit = 0)
{
    DWORD result = 0;
    std::thread([&] {
        result = WaitForSingleObject(mutex, limit);
        if (result == WAIT_OBJECT_0 || result == WAIT_ABANDONED) {
            EXPECT_TRUE(ReleaseMutex(mutex));
        }
    }).join();
    return result;
}

class NamedMutex : public testing::Test {
protected:
    /// Creates or opens a mutex. @param exists whether it must exist already
    HANDLE Create(bool exists, BOOL owned = FALSE, std::string_view end = "") const
    {
        SetLastError(exists ? ERROR_SUCCESS : ERROR_ALREADY_EXISTS);
        const HANDLE mutex = Machine.Create(owned, end);
        const DWORD error = GetLastError();
        EXPECT_NE(mutex, nullptr);
        EXPECT_EQ(error, exists ? DWORD{ERROR_ALREADY_EXISTS} : DWORD{ERROR_SUCCESS}) << end;
        return mutex;
    }

    const MutexMachine Machine{};
};

TEST_F(NamedMutex, BelongsToItsCreatorAndNotToLaterOpeners)
{
    const HANDLE first = Create(false, TRUE);
    const HANDLE second = Create(true, TRUE);
    EXPECT_NE(first, second);
    testkit::RunAlone(Machine, [](const MutexMachine& machine) {
        const HANDLE mutex = machine.Create(TRUE);
        EXPECT_EQ(GetLastError(), DWORD{ERROR_ALREADY_EXISTS});
        EXPECT_EQ(WaitForSingleObject(mutex, 0), DWORD{WAIT_TIMEOUT});
        EXPECT_FALSE(ReleaseMutex(mutex));
        EXPECT_EQ(GetLastError(), DWORD{ERROR_NOT_OWNER});
    });
    // The second handle added no ownership: one release by either handle frees the mutex.
    EXPECT_TRUE(ReleaseMutex(second));
    EXPECT_FALSE(ReleaseMutex(first));
    EXPECT_EQ(GetLastError(), DWORD{ERROR_NOT_OWNER});
    EXPECT_EQ(TryElsewhere(first), DWORD{WAIT_OBJECT_0});
    CloseHandle(first);
    CloseHandle(second);
}

TEST_F(NamedMutex, ExistsFromItsFirstHandleToItsLast)
{
    const testkit::Gate opened(Machine.Folder / "opened");
    const testkit::Gate end(Machine.Folder / "end");
    const HANDLE first = Create(false);
    {
        testkit::TestProcess holder(Machine, [](const MutexMachine& machine) {
            const testkit::Gate isOpened(machine.Folder / "opened");
            const testkit::Gate mayEnd(machine.Folder / "end");
            EXPECT_NE(machine.Create(), nullptr);
            isOpened.Open();
            mayEnd.Pass();
        });
        opened.Pass();
        EXPECT_TRUE(CloseHandle(first));
        EXPECT_TRUE(CloseHandle(Create(true))) << "another process still has a handle";
        end.Open();
        EXPECT_EQ(holder.Wait(), 0);
    }
    EXPECT_TRUE(CloseHandle(Create(false)));
}

/// Ends a process that owns the mutex.
void ReturnAsOwner(const MutexMachine& machine)
{
    EXPECT_EQ(WaitForSingleObject(machine.Create(), INFINITE), DWORD{WAIT_OBJECT_0});
}
void DieAsOwner(const MutexMachine& machine)
{
    ReturnAsOwner(machine);
    testkit::Die();
}

TEST_F(NamedMutex, IsRemovedWhenItsOnlyHolderEndsOrDies)
{
    EXPECT_EQ(testkit::TestProcess(Machine, ReturnAsOwner).Wait(), 0);
    CloseHandle(Create(false, TRUE));
    EXPECT_NE(testkit::TestProcess(Machine, DieAsOwner).Wait(), 0);
    CloseHandle(Create(false, TRUE));
}

TEST_F(NamedMutex, CountsTheWaitsOfItsOwnerByAnyHandle)
{
    const HANDLE created = Create(false, TRUE);
    const HANDLE mutex = Create(true);
    EXPECT_EQ(WaitForSingleObject(created, 0), DWORD{WAIT_OBJECT_0});
    EXPECT_TRUE(CloseHandle(created));
    EXPECT_EQ(WaitForSingleObject(mutex, INFINITE), DWORD{WAIT_OBJECT_0});
    for (int held = 3; held > 0; --held) {
        EXPECT_EQ(TryElsewhere(mutex), DWORD{WAIT_TIMEOUT}) << held;
        EXPECT_TRUE(ReleaseMutex(mutex));
    }
    EXPECT_FALSE(ReleaseMutex(mutex));
    EXPECT_EQ(TryElsewhere(mutex), DWORD{WAIT_OBJECT_0});
    CloseHandle(mutex);
}

TEST_F(NamedMutex, WaitsForTheGivenTime)
{
    const HANDLE mutex = Create(false, TRUE);
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(TryElsewhere(mutex, 150), DWORD{WAIT_TIMEOUT});
    // The platform's clock may have ticks of 16 ms.
    EXPECT_GE(std::chrono::steady_clock::now() - start, 130ms);
    for (const DWORD limit : {DWORD{10000}, DWORD{INFINITE}}) {
        std::thread waiter([mutex, limit] {
            EXPECT_EQ(WaitForSingleObject(mutex, limit), DWORD{WAIT_OBJECT_0});
            EXPECT_TRUE(ReleaseMutex(mutex));
        });
        std::this_thread::sleep_for(30ms);
        EXPECT_TRUE(ReleaseMutex(mutex));
        waiter.join();
        EXPECT_EQ(WaitForSingleObject(mutex, 0), DWORD{WAIT_OBJECT_0});
    }
    CloseHandle(mutex);
}

TEST_F(NamedMutex, IsAbandonedByAThreadThatEnds)
{
    const HANDLE mutexes[] = {Create(false), CreateMutexW(nullptr, FALSE, nullptr)};
    for (const HANDLE mutex : mutexes) {
        std::thread([mutex] {
            for (int i = 0; i < 2; ++i)
                EXPECT_EQ(WaitForSingleObject(mutex, INFINITE), DWORD{WAIT_OBJECT_0});
        }).join();
        EXPECT_EQ(WaitForSingleObject(mutex, INFINITE), DWORD{WAIT_ABANDONED});
        EXPECT_EQ(WaitForSingleObject(mutex, 0), DWORD{WAIT_OBJECT_0}) << "reported once";
        EXPECT_TRUE(ReleaseMutex(mutex));
        EXPECT_TRUE(ReleaseMutex(mutex));
        EXPECT_FALSE(ReleaseMutex(mutex)) << "the waiter became the owner";
        EXPECT_EQ(TryElsewhere(mutex), DWORD{WAIT_OBJECT_0});
        CloseHandle(mutex);
    }
}

TEST_F(NamedMutex, IsAbandonedByAProcessThatEnds)
{
    const HANDLE mutex = Create(false);
    EXPECT_EQ(testkit::TestProcess(Machine, ReturnAsOwner).Wait(), 0);
    EXPECT_EQ(TryElsewhere(mutex), DWORD{WAIT_ABANDONED});
    EXPECT_EQ(TryElsewhere(mutex), DWORD{WAIT_OBJECT_0});
    EXPECT_NE(testkit::TestProcess(Machine, DieAsOwner).Wait(), 0);
    EXPECT_EQ(WaitForSingleObject(mutex, 0), DWORD{WAIT_ABANDONED});
    EXPECT_TRUE(ReleaseMutex(mutex));
    EXPECT_EQ(TryElsewhere(mutex), DWORD{WAIT_OBJECT_0});
    CloseHandle(mutex);
}

TEST_F(NamedMutex, DeathOfTheOwnerWakesAWaiter)
{
    const HANDLE mutex = Create(false);
    const testkit::Gate taken(Machine.Folder / "taken");
    testkit::TestProcess holder(Machine, [](const MutexMachine& machine) {
        const testkit::Gate isTaken(machine.Folder / "taken");
        const testkit::Gate never(machine.Folder / "never");
        WaitForSingleObject(machine.Create(), INFINITE);
        isTaken.Open();
        never.Pass();
    });
    taken.Pass();
    EXPECT_EQ(WaitForSingleObject(mutex, 20), DWORD{WAIT_TIMEOUT});
    std::thread killer([&holder] {
        std::this_thread::sleep_for(20ms);
        holder.Kill();
    });
    EXPECT_EQ(WaitForSingleObject(mutex, INFINITE), DWORD{WAIT_ABANDONED});
    killer.join();
    CloseHandle(mutex);
}

TEST_F(NamedMutex, ClosedHandleIsRefused)
{
    const HANDLE closed = Create(false);
    ASSERT_TRUE(CloseHandle(closed));
    for (const HANDLE stale : {closed, HANDLE{nullptr}}) {
        const auto isRefused = [] { return GetLastError() == DWORD{ERROR_INVALID_HANDLE}; };
        SetLastError(0);
        EXPECT_TRUE(!CloseHandle(stale) && isRefused());
        SetLastError(0);
        EXPECT_TRUE(WaitForSingleObject(stale, 0) == WAIT_FAILED && isRefused());
        SetLastError(0);
        EXPECT_TRUE(!ReleaseMutex(stale) && isRefused());
    }
    EXPECT_TRUE(CloseHandle(Create(false))) << "the closed mutex was removed";
}

TEST_F(NamedMutex, NamesCompareExactly)
{
    const std::string path(506, 'x');
    const HANDLE mutexes[] = {
        Create(false),
        Create(false, FALSE, "a"),
        Create(false, FALSE, "A"),
        Create(false, FALSE, " "),
        Create(false, FALSE, "/var/log_C:.*"),
        Create(false, FALSE, path.substr(1)),
        Create(false, FALSE, path.substr(1) + "y"),
        MutexMachine::CreateCalled(Machine.Name() + u"\u00e4\u4e2d"_w),
        MutexMachine::CreateCalled(Machine.Name() + u"\u00c4\u4e2d"_w),
    };
    EXPECT_EQ(GetLastError(), DWORD{ERROR_SUCCESS});
    CloseHandle(Create(true, FALSE, path.substr(1)));
    CloseHandle(Create(true, FALSE, "A"));
    for (const HANDLE mutex : mutexes) {
        EXPECT_EQ(WaitForSingleObject(mutex, 0), DWORD{WAIT_OBJECT_0});
        EXPECT_TRUE(ReleaseMutex(mutex));
        EXPECT_TRUE(CloseHandle(mutex));
    }
}

TEST_F(NamedMutex, SessionPrefixIsNotPartOfTheName)
{
    const HANDLE plain = Create(false);
    const HANDLE local = MutexMachine::CreateCalled(u"Local\\"_w + Machine.Name());
    EXPECT_EQ(GetLastError(), DWORD{ERROR_ALREADY_EXISTS});
    const HANDLE global = MutexMachine::CreateCalled(u"Global\\"_w + Machine.Name("wide"));
    EXPECT_EQ(GetLastError(), DWORD{ERROR_SUCCESS});
    const HANDLE again = MutexMachine::CreateCalled(u"Global\\"_w + Machine.Name("wide"));
    EXPECT_EQ(GetLastError(), DWORD{ERROR_ALREADY_EXISTS});
    for (const HANDLE mutex : {plain, local, global, again})
        EXPECT_TRUE(CloseHandle(mutex));
    const struct {
        const unsigned short* Folder;
        DWORD Error;
    } rows[] = {
        {u"folder\\"_w, ERROR_PATH_NOT_FOUND},
        {u"global\\"_w, ERROR_PATH_NOT_FOUND},
        {u"Global\\folder\\"_w, ERROR_PATH_NOT_FOUND},
        {u"\\"_w, DWORD{ERROR_BAD_PATHNAME}},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(MutexMachine::CreateCalled(row.Folder + Machine.Name()), nullptr) << testkit::Narrow(row.Folder);
        EXPECT_EQ(GetLastError(), row.Error) << testkit::Narrow(row.Folder);
    }
}

TEST_F(NamedMutex, WithoutANameIsNotShared)
{
    for (const unsigned short* const name : {u""_w, static_cast<const unsigned short*>(nullptr)}) {
        const HANDLE one = CreateMutexW(nullptr, TRUE, Wide(name));
        const HANDLE other = CreateMutexW(nullptr, TRUE, Wide(name));
        EXPECT_EQ(GetLastError(), DWORD{ERROR_SUCCESS});
        EXPECT_TRUE(ReleaseMutex(one));
        EXPECT_EQ(TryElsewhere(one), DWORD{WAIT_OBJECT_0});
        EXPECT_EQ(TryElsewhere(other), DWORD{WAIT_TIMEOUT});
        EXPECT_TRUE(CloseHandle(one));
        EXPECT_TRUE(CloseHandle(other));
    }
}

/// Increments the number in a file. Only one thread at a time can do that without losing counts.
void Increment(const std::filesystem::path& path)
{
    const std::string before = testkit::ReadFile(path);
    std::this_thread::yield();
    testkit::WriteFile(path, std::to_string(std::stoi(before) + 1));
}

TEST_F(NamedMutex, ExcludesThreadsOfSeveralProcesses)
{
    testkit::WriteFile(Machine.Counter(), "0");
    const auto work = [](const MutexMachine& machine) {
        const HANDLE shared = machine.Create();
        const auto count = [&machine, shared] {
            const HANDLE own = machine.Create();
            for (int i = 0; i < 200; ++i) {
                const HANDLE mutex = i % 2 == 0 ? own : shared;
                const DWORD limits[] = {0, 60000, INFINITE};
                DWORD result = 0;
                while ((result = WaitForSingleObject(mutex, limits[i % 3])) == WAIT_TIMEOUT)
                    std::this_thread::sleep_for(10us);
                EXPECT_EQ(result, DWORD{WAIT_OBJECT_0});
                Increment(machine.Counter());
                EXPECT_TRUE(ReleaseMutex(mutex));
            }
            CloseHandle(own);
        };
        std::thread one(count);
        std::thread two(count);
        one.join();
        two.join();
    };
    testkit::TestProcess first(Machine, work);
    testkit::TestProcess second(Machine, work);
    testkit::TestProcess third(Machine, work);
    for (testkit::TestProcess* const process : {&first, &second, &third})
        EXPECT_EQ(process->Wait(), 0);
    EXPECT_EQ(testkit::ReadFile(Machine.Counter()), "1200");
}

}  // namespace
