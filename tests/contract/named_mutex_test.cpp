// Mutexes: found by name in the whole session, owned by threads, gone with their last handle.
#include "processes.h"
#include "system.h"

#include <gtest/gtest.h>

#include <chrono>
#include <thread>
#include <vector>

using namespace utility::literals;
using namespace std::chrono_literals;
using platform::Wide;

namespace {

class MutexWorld : public support::Machine {
public:
    /// A name of this test alone.
    utility::wstring Name(std::string_view end = "") const
    {
        return support::Wide(Folder.path().filename().string() + ".Mutex" + std::string(end));
    }
    HANDLE Create(BOOL owned = FALSE, std::string_view end = "") const { return CreateCalled(Name(end), owned); }

    static HANDLE CreateCalled(const utility::wstring& name, BOOL owned = FALSE)
    {
        return CreateMutexW(nullptr, owned, Wide(name.c_str()));
    }

    std::string Counter() const { return Folder / "counter"; }
    std::string Gate(const char* name) const { return Folder / name; }
};

/// What another thread gets that tries for the mutex. It lets go of it at once.
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
    /// Makes or opens a mutex that has to be there already, or not to be.
    HANDLE Create(bool wasThere, BOOL owned = FALSE, std::string_view end = "") const
    {
        SetLastError(wasThere ? ERROR_SUCCESS : ERROR_ALREADY_EXISTS);
        const HANDLE mutex = World.Create(owned, end);
        const DWORD error = GetLastError();
        EXPECT_NE(mutex, nullptr);
        EXPECT_EQ(error, wasThere ? DWORD{ERROR_ALREADY_EXISTS} : DWORD{ERROR_SUCCESS}) << end;
        return mutex;
    }

    const MutexWorld World{};
};

TEST_F(NamedMutex, BelongsToItsCreatorAndToNoLaterOpener)
{
    const HANDLE first = Create(false, TRUE);
    const HANDLE second = Create(true, TRUE);
    EXPECT_NE(first, second);
    support::RunAlone(World, [](const MutexWorld& world) {
        const HANDLE mutex = world.Create(TRUE);
        EXPECT_EQ(GetLastError(), DWORD{ERROR_ALREADY_EXISTS});
        EXPECT_EQ(WaitForSingleObject(mutex, 0), DWORD{WAIT_TIMEOUT});
        EXPECT_FALSE(ReleaseMutex(mutex));
        EXPECT_EQ(GetLastError(), DWORD{ERROR_NOT_OWNER});
    });
    // The second handle brought no ownership of its own: one release, by either, frees the mutex.
    EXPECT_TRUE(ReleaseMutex(second));
    EXPECT_FALSE(ReleaseMutex(first));
    EXPECT_EQ(GetLastError(), DWORD{ERROR_NOT_OWNER});
    EXPECT_EQ(TryElsewhere(first), DWORD{WAIT_OBJECT_0});
    CloseHandle(first);
    CloseHandle(second);
}

TEST_F(NamedMutex, WithoutAnInitialOwnerItIsFree)
{
    const HANDLE mutex = Create(false);
    EXPECT_FALSE(ReleaseMutex(mutex));
    EXPECT_EQ(GetLastError(), DWORD{ERROR_NOT_OWNER});
    EXPECT_EQ(TryElsewhere(mutex), DWORD{WAIT_OBJECT_0});
    CloseHandle(mutex);
}

TEST_F(NamedMutex, LivesFromItsFirstHandleToItsLast)
{
    const support::Gate opened(World.Gate("opened"));
    const support::Gate end(World.Gate("end"));
    const HANDLE first = Create(false);
    {
        support::Process holder(World, [](const MutexWorld& world) {
            const support::Gate isOpened(world.Gate("opened"));
            const support::Gate mayEnd(world.Gate("end"));
            EXPECT_NE(world.Create(), nullptr);
            isOpened.Open();
            mayEnd.Pass();
        });
        opened.Pass();
        EXPECT_TRUE(CloseHandle(first));
        EXPECT_TRUE(CloseHandle(Create(true))) << "another process still has it";
        end.Open();
        EXPECT_EQ(holder.Wait(), 0);
    }
    EXPECT_TRUE(CloseHandle(Create(false)));
}

TEST_F(NamedMutex, EndsWithItsOnlyHolderHoweverThatEnds)
{
    const auto returns = [](const MutexWorld& world) { world.Create(TRUE); };
    const auto dies = [](const MutexWorld& world) {
        world.Create(TRUE);
        support::Die();
    };
    EXPECT_EQ(support::Process(World, returns).Wait(), 0);
    CloseHandle(Create(false, TRUE));
    EXPECT_NE(support::Process(World, dies).Wait(), 0);
    CloseHandle(Create(false, TRUE));
}

TEST_F(NamedMutex, CountsTheWaitsOfItsOwner)
{
    const HANDLE mutex = Create(false, TRUE);
    EXPECT_EQ(WaitForSingleObject(mutex, 0), DWORD{WAIT_OBJECT_0});
    EXPECT_EQ(WaitForSingleObject(mutex, INFINITE), DWORD{WAIT_OBJECT_0});
    for (int held = 3; held > 0; --held) {
        EXPECT_EQ(TryElsewhere(mutex), DWORD{WAIT_TIMEOUT}) << held;
        EXPECT_TRUE(ReleaseMutex(mutex));
    }
    EXPECT_FALSE(ReleaseMutex(mutex));
    EXPECT_EQ(TryElsewhere(mutex), DWORD{WAIT_OBJECT_0});
    CloseHandle(mutex);
}

TEST_F(NamedMutex, StaysItsOwnersWhenOneOfItsHandlesCloses)
{
    const HANDLE owned = Create(false, TRUE);
    const HANDLE other = Create(true);
    EXPECT_TRUE(CloseHandle(owned));
    EXPECT_EQ(TryElsewhere(other), DWORD{WAIT_TIMEOUT});
    EXPECT_TRUE(ReleaseMutex(other));
    EXPECT_EQ(TryElsewhere(other), DWORD{WAIT_OBJECT_0});
    CloseHandle(other);
}

TEST_F(NamedMutex, WaitsAsLongAsItIsTold)
{
    const HANDLE mutex = Create(false, TRUE);
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(TryElsewhere(mutex, 150), DWORD{WAIT_TIMEOUT});
    // The platform's clock may tick as coarsely as every 16 ms.
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

TEST_F(NamedMutex, ThreadThatEndsLeavesItAbandoned)
{
    const HANDLE mutexes[] = {Create(false), CreateMutexW(nullptr, FALSE, nullptr)};
    for (const HANDLE mutex : mutexes) {
        std::thread([mutex] {
            for (int i = 0; i < 2; ++i)
                EXPECT_EQ(WaitForSingleObject(mutex, INFINITE), DWORD{WAIT_OBJECT_0});
        }).join();
        EXPECT_EQ(WaitForSingleObject(mutex, INFINITE), DWORD{WAIT_ABANDONED});
        EXPECT_EQ(WaitForSingleObject(mutex, 0), DWORD{WAIT_OBJECT_0}) << "it is said once";
        EXPECT_TRUE(ReleaseMutex(mutex));
        EXPECT_TRUE(ReleaseMutex(mutex));
        EXPECT_FALSE(ReleaseMutex(mutex)) << "and belongs to the one who was told";
        EXPECT_EQ(TryElsewhere(mutex), DWORD{WAIT_OBJECT_0});
        CloseHandle(mutex);
    }
}

TEST_F(NamedMutex, ProcessThatEndsLeavesItAbandoned)
{
    const HANDLE mutex = Create(false);
    const auto returns = [](const MutexWorld& world) {
        EXPECT_EQ(WaitForSingleObject(world.Create(), INFINITE), DWORD{WAIT_OBJECT_0});
    };
    const auto dies = [](const MutexWorld& world) {
        WaitForSingleObject(world.Create(), INFINITE);
        support::Die();
    };
    EXPECT_EQ(support::Process(World, returns).Wait(), 0);
    EXPECT_EQ(TryElsewhere(mutex), DWORD{WAIT_ABANDONED});
    EXPECT_EQ(TryElsewhere(mutex), DWORD{WAIT_OBJECT_0});
    EXPECT_NE(support::Process(World, dies).Wait(), 0);
    EXPECT_EQ(WaitForSingleObject(mutex, 0), DWORD{WAIT_ABANDONED});
    EXPECT_TRUE(ReleaseMutex(mutex));
    EXPECT_EQ(TryElsewhere(mutex), DWORD{WAIT_OBJECT_0});
    CloseHandle(mutex);
}

TEST_F(NamedMutex, OwnerThatIsKilledWakesWhoWaits)
{
    const HANDLE mutex = Create(false);
    const support::Gate taken(World.Gate("taken"));
    support::Process holder(World, [](const MutexWorld& world) {
        const support::Gate isTaken(world.Gate("taken"));
        const support::Gate never(world.Gate("never"));
        WaitForSingleObject(world.Create(), INFINITE);
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

TEST_F(NamedMutex, HandleThatIsNotOpenIsRefused)
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
    EXPECT_TRUE(CloseHandle(Create(false))) << "what was closed is gone";
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
        MutexWorld::CreateCalled(World.Name() + u"\u00e4\u4e2d"_w),
        MutexWorld::CreateCalled(World.Name() + u"\u00c4\u4e2d"_w),
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

TEST_F(NamedMutex, PrefixesOfSessionsAreNoPartOfTheName)
{
    const HANDLE plain = Create(false);
    const HANDLE local = MutexWorld::CreateCalled(u"Local\\"_w + World.Name());
    EXPECT_EQ(GetLastError(), DWORD{ERROR_ALREADY_EXISTS});
    const HANDLE global = MutexWorld::CreateCalled(u"Global\\"_w + World.Name("wide"));
    EXPECT_EQ(GetLastError(), DWORD{ERROR_SUCCESS});
    const HANDLE again = MutexWorld::CreateCalled(u"Global\\"_w + World.Name("wide"));
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
        EXPECT_EQ(MutexWorld::CreateCalled(row.Folder + World.Name()), nullptr) << support::Narrow(row.Folder);
        EXPECT_EQ(GetLastError(), row.Error) << support::Narrow(row.Folder);
    }
}

TEST_F(NamedMutex, WithoutANameItIsNobodyElses)
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

/// Counts on in a file, which goes well only for one at a time.
void CountOn(const std::string& path)
{
    const std::string before = support::ReadFile(path);
    std::this_thread::yield();
    support::WriteFile(path, std::to_string(std::stoi(before) + 1));
}

TEST_F(NamedMutex, ThreadsOfSeveralProcessesNeverMeet)
{
    support::WriteFile(World.Counter(), "0");
    const auto work = [](const MutexWorld& world) {
        const HANDLE shared = world.Create();
        const auto count = [&world, shared] {
            const HANDLE own = world.Create();
            for (int i = 0; i < 200; ++i) {
                const HANDLE mutex = i % 2 == 0 ? own : shared;
                EXPECT_EQ(WaitForSingleObject(mutex, i % 3 == 0 ? INFINITE : DWORD{60000}), DWORD{WAIT_OBJECT_0});
                CountOn(world.Counter());
                EXPECT_TRUE(ReleaseMutex(mutex));
            }
            CloseHandle(own);
        };
        std::thread one(count);
        std::thread two(count);
        one.join();
        two.join();
    };
    support::Process first(World, work);
    support::Process second(World, work);
    support::Process third(World, work);
    for (support::Process* const process : {&first, &second, &third})
        EXPECT_EQ(process->Wait(), 0);
    EXPECT_EQ(support::ReadFile(World.Counter()), "1200");
}

}  // namespace
