// The primitives where memory runs out, and across a fork.
#include "child.h"
#include "fail_allocation.h"
#include "tessmaru/primitives.h"

#include <gtest/gtest.h>

#include <atomic>
#include <thread>

using utility::CCriticalSection;
using utility::CSecurityDescriptor;

namespace {

TEST(PrimitivesOnLinux, StrayUnlockFreesNobodysLock)
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

TEST(PrimitivesOnLinux, ChildOfAForkFindsItFree)
{
    CCriticalSection section;
    const support::PipeGate held;
    const support::PipeGate end;
    std::thread holder([&] {
        section.Lock();
        held.Open();
        end.Pass();
        section.Unlock();
    });
    held.Pass();
    support::Child child([&] { return section.Lock() | section.Unlock(); });
    EXPECT_EQ(child.Wait(), 0);
    end.Open();
    holder.join();
}

TEST(PrimitivesOnLinux, DescriptorLeavesNothingWithoutMemory)
{
    int failed = 0;
    for (int n = 1;; ++n) {
        const int before = support::LiveBlocks();
        support::FailAllocation(n);
        bool made = true;
        LONG code = 0;
        try {
            const CSecurityDescriptor object;
        } catch (const _com_error& failure) {
            made = false;
            code = failure.Error();
        }
        support::FailAllocation(0);
        EXPECT_EQ(support::LiveBlocks(), before);
        if (made)
            break;
        ++failed;
        EXPECT_EQ(code, E_OUTOFMEMORY);
    }
    EXPECT_GE(failed, 5);
}

TEST(PrimitivesOnLinux, DescriptorIsReleasedOnceHoweverManyCopiesThereAre)
{
    const int before = support::LiveBlocks();
    {
        CSecurityDescriptor object;
        CSecurityDescriptor copy(object);
        CSecurityDescriptor assigned;
        assigned = copy;
        copy.getNewDacl() = nullptr;
    }
    EXPECT_EQ(support::LiveBlocks(), before);
}

}  // namespace
