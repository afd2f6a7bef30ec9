// The primitives on Linux: across a fork, and out of memory.
#include "tessmaru/primitives.h"
#include "testkit/gate.h"
#include "testkit/linux/child.h"
#include "testkit/linux/failing_allocation.h"
#include "testkit/scratch_folder.h"

#include <gtest/gtest.h>

#include <atomic>
#include <thread>

using utility::CCriticalSection;
using utility::CSecurityDescriptor;

namespace {

TEST(PrimitivesOnLinux, UnlockWithoutALockChangesNothing)
{
    CCriticalSection section;
    section.Unlock();
    section.Lock();
    std::thread([&] { section.Unlock(); }).join();
    std::atomic<bool> inside{false};
    std::thread contender([&] {
        section.Lock();
        inside = true;
        section.Unlock();
    });
    std::this_thread::yield();
    EXPECT_FALSE(inside);
    section.Unlock();
    contender.join();
    EXPECT_TRUE(inside);
}

TEST(PrimitivesOnLinux, SectionIsFreeInAForkedChild)
{
    CCriticalSection section;
    const testkit::ScratchFolder folder;
    const testkit::Gate held(folder / "held");
    const testkit::Gate end(folder / "end");
    std::thread holder([&] {
        section.Lock();
        held.Open();
        end.Pass();
        section.Unlock();
    });
    held.Pass();
    testkit::Child child([&] { return section.Lock() | section.Unlock(); });
    EXPECT_EQ(child.Wait(), 0);
    end.Open();
    holder.join();
}

TEST(PrimitivesOnLinux, DescriptorLeaksNothingWhenOutOfMemory)
{
    int failed = 0;
    for (int n = 1;; ++n) {
        const int before = testkit::LiveBlocks();
        testkit::FailAllocation(n);
        bool made = true;
        LONG code = 0;
        try {
            const CSecurityDescriptor object;
        } catch (const _com_error& failure) {
            made = false;
            code = failure.Error();
        }
        testkit::FailAllocation(0);
        EXPECT_EQ(testkit::LiveBlocks(), before);
        if (made)
            break;
        ++failed;
        EXPECT_EQ(code, E_OUTOFMEMORY);
    }
    EXPECT_GE(failed, 5);
}

TEST(PrimitivesOnLinux, DescriptorWithCopiesIsReleasedOnce)
{
    const int before = testkit::LiveBlocks();
    {
        CSecurityDescriptor object;
        CSecurityDescriptor copy(object);
        CSecurityDescriptor assigned;
        assigned = copy;
        copy.getNewDacl() = nullptr;
    }
    EXPECT_EQ(testkit::LiveBlocks(), before);
}

}  // namespace
