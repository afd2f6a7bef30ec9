// The primitives on Linux: across a fork, and out of memory.
#include "system.h"
#include "tessmaru/primitives.h"
#include "testkit/linux/child.h"
#include "testkit/linux/failing_allocation.h"

#include <gtest/gtest.h>

#include <future>
#include <thread>
#include <utility>

using utility::CCriticalSection;
using utility::CSecurityDescriptor;

namespace {

/// Whether another thread has to wait for the caller's lock. Gives up the lock.
bool ExcludesOthers(CCriticalSection& section)
{
    const std::future<LONG> contender =
        std::async(std::launch::async, [&section] { return section.Lock() | section.Unlock(); });
    const bool excluded = contender.wait_for(std::chrono::milliseconds(50)) == std::future_status::timeout;
    section.Unlock();
    return excluded;
}

TEST(PrimitivesOnLinux, UnlockWithoutALockChangesNothing)
{
    CCriticalSection section;
    section.Unlock();
    section.Lock();
    std::thread([&] { section.Unlock(); }).join();
    EXPECT_TRUE(ExcludesOthers(section));
}

TEST(PrimitivesOnLinux, SectionIsFreeInAForkedChild)
{
    CCriticalSection section;
    section.Lock();
    testkit::Child ofHolder([&] { return section.Lock() != 0 || !ExcludesOthers(section); });
    EXPECT_EQ(ofHolder.Wait(), 0) << "the child's thread holds no lock of its parent's";
    std::thread([&] { EXPECT_EQ(testkit::Child([&] { return section.Lock() | section.Unlock(); }).Wait(), 0); }).join();
    section.Unlock();
}

TEST(PrimitivesOnLinux, DescriptorLeaksNothingWhenOutOfMemory)
{
    EXPECT_GT(testkit::FailEachAllocation([] {
                  try {
                      const CSecurityDescriptor object;
                      EXPECT_FALSE(testkit::AllocationFailed());
                  } catch (const _com_error& failure) {
                      EXPECT_EQ(failure.Error(), E_OUTOFMEMORY);
                  }
              }),
              0);
}

TEST(PrimitivesOnLinux, DescriptorWithCopiesIsReleasedOnce)
{
    const int before = testkit::LiveBlocks();
    void* taken = nullptr;
    {
        CSecurityDescriptor object;
        CSecurityDescriptor copy(object);
        CSecurityDescriptor assigned;
        assigned = copy;
        copy.getNewDacl() = nullptr;
        const CSecurityDescriptor& same = assigned;
        assigned = same;
        CSecurityDescriptor other;
        taken = std::exchange(other.getSecurityDescriptor(), nullptr);
    }
    EXPECT_EQ(testkit::LiveBlocks(), before + 1) << "what one of the copies still had is released";
    EXPECT_TRUE(HeapFree(GetProcessHeap(), 0, taken));
}

}  // namespace
