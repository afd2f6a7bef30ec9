// The primitives: critical section, security descriptor, stop watch.
#include "tessmaru/primitives.h"

#include "system.h"
#include "testkit/text.h"

#include <gtest/gtest.h>

#include <cstring>
#include <future>
#include <optional>
#include <thread>
#include <utility>

using utility::CCriticalSection;
using utility::CSecurityDescriptor;
using utility::CStopWatch;

namespace {

class OpenSection : public CCriticalSection {
public:
    using CCriticalSection::Init;
    using CCriticalSection::Term;
};

class OpenDescriptor : public CSecurityDescriptor {
public:
    using CSecurityDescriptor::freeSecurityDescriptor;
    using CSecurityDescriptor::initSecurityDescriptor;
};

/// A thread that takes the lock once.
std::future<void> Contend(CCriticalSection& section)
{
    return std::async(std::launch::async, [&section] {
        section.AttemptLock();
        section.Unlock();
    });
}

bool Waits(const std::future<void>& contender)
{
    return contender.wait_for(std::chrono::milliseconds(50)) == std::future_status::timeout;
}

TEST(CriticalSection, CountsItsLocksThoughItsFlagDoesNot)
{
    CCriticalSection section;
    EXPECT_FALSE(section.IsLocked());
    EXPECT_EQ(section.Lock() | section.Lock(), 0);
    EXPECT_TRUE(section.IsLocked());
    section.Unlock();
    EXPECT_FALSE(section.IsLocked());
    const std::future<void> contender = Contend(section);
    EXPECT_TRUE(Waits(contender)) << "the first of two locks is still held";
    section.Unlock();
    contender.wait();
}

TEST(CriticalSection, AnAttemptIsALock)
{
    class CountingSection : public CCriticalSection {
    public:
        LONG Lock() override
        {
            ++Locks;
            return CCriticalSection::Lock();
        }
        int Locks = 0;
    } section;
    EXPECT_EQ(section.AttemptLock(), 0);
    EXPECT_EQ(section.AttemptLock(), 0) << "its thread may lock it again";
    EXPECT_EQ(section.Locks, 2) << "an override counts";
    EXPECT_TRUE(section.IsLocked());
    const std::future<void> contender = Contend(section);
    EXPECT_TRUE(Waits(contender)) << "it waits, in spite of its name";
    section.Unlock();
    section.Unlock();
    contender.wait();
}

TEST(CriticalSection, CopiesShareTheLockAndTheLastReleasesIt)
{
    auto first = std::make_optional<OpenSection>();
    CCriticalSection copy(*first);
    CCriticalSection assigned;
    assigned = copy;
    assigned.Lock();
    EXPECT_FALSE(copy.IsLocked()) << "each copy has its own flag";
    const std::future<void> contender = Contend(*first);
    EXPECT_TRUE(Waits(contender));
    copy.Unlock();
    contender.wait();
    first->Term();
    first->Init();
    first.reset();
    copy.Lock();
    copy.Unlock();
}

TEST(SecurityDescriptor, HasTheDocumentedAccessList)
{
    CSecurityDescriptor object;
    auto* const attributes = object.getSecurityAttributes();
    ASSERT_NE(attributes, nullptr);
    EXPECT_EQ(attributes->nLength, sizeof(SECURITY_ATTRIBUTES));
    EXPECT_EQ(attributes->lpSecurityDescriptor, object.getSecurityDescriptor());
    EXPECT_FALSE(attributes->bInheritHandle);
    const auto* const descriptor = static_cast<SECURITY_DESCRIPTOR*>(object.getSecurityDescriptor());
    EXPECT_EQ(descriptor->Dacl, object.getNewDacl());
    EXPECT_EQ(descriptor->Control, SE_DACL_PRESENT);

    const auto* const dacl = object.getNewDacl();
    ASSERT_EQ(dacl->AceCount, 2);
    EXPECT_EQ(dacl->AclSize, 2 * GetLengthSid(object.getEveryone()) + 32);
    const BYTE sid[] = {1, 1, 0, 0, 0, 0, 0, 1, 0, 0, 0, 0};
    EXPECT_EQ(std::memcmp(object.getEveryone(), sid, sizeof sid), 0);
    const BYTE denied[] = {1, 0, 20, 0, 0, 0, 0x0C, 0};
    const BYTE allowed[] = {0, 0, 20, 0, 0, 0, 0, 0x10};
    const auto* entry = reinterpret_cast<const BYTE*>(dacl) + sizeof(ACL);
    for (const BYTE* expected : {denied, allowed}) {
        EXPECT_EQ(std::memcmp(entry, expected, sizeof denied), 0);
        EXPECT_EQ(std::memcmp(entry + sizeof denied, sid, sizeof sid), 0);
        entry += 20;
    }
}

TEST(SecurityDescriptor, CopiesShareTheBlocksAndOutliveEachOther)
{
    auto object = std::make_optional<OpenDescriptor>();
    CSecurityDescriptor copy(*object);
    CSecurityDescriptor assigned;
    assigned = copy;
    const void* const shared = object->getEveryone();
    EXPECT_EQ(object->initSecurityDescriptor(), 0);
    EXPECT_NE(object->getEveryone(), shared);
    EXPECT_EQ(assigned.getEveryone(), shared);
    object->freeSecurityDescriptor();
    object->freeSecurityDescriptor();
    EXPECT_EQ(object->getSecurityAttributes(), nullptr);
    object.reset();
    EXPECT_EQ(copy.getSecurityAttributes()->lpSecurityDescriptor, copy.getSecurityDescriptor());
    copy.getNewDacl() = nullptr;
    EXPECT_EQ(assigned.getNewDacl()->AceCount, 2);
}

TEST(SecurityDescriptor, LeavesWhatTheCallerTookAway)
{
    OpenDescriptor object;
    void* const blocks[] = {std::exchange(object.getSecurityAttributes(), nullptr),
                            std::exchange(object.getSecurityDescriptor(), nullptr),
                            std::exchange(object.getNewDacl(), nullptr)};
    void* const everyone = std::exchange(object.getEveryone(), nullptr);
    EXPECT_EQ(object.freeSecurityDescriptor(), 0);
    EXPECT_EQ(GetLengthSid(everyone), 12U);
    for (void* const block : blocks)
        EXPECT_TRUE(HeapFree(GetProcessHeap(), 0, block));
    EXPECT_EQ(FreeSid(everyone), nullptr);
    EXPECT_EQ(object.initSecurityDescriptor(), 0);
    EXPECT_NE(object.getNewDacl(), nullptr);
}

class OpenWatch : public CStopWatch {
public:
    using CStopWatch::getTimeSince;
};

TEST(StopWatch, MeasuresSecondsSinceItsStartAndItsMark)
{
    const LONG before = platform::Clock();
    OpenWatch watch;
    while (platform::Clock() == before)
        std::this_thread::yield();
    const auto seconds = [](const utility::wstring& text) { return std::stod(testkit::Narrow(text)); };
    EXPECT_GT(watch.getTimeSince(before), 0);
    const double first = watch.ElapsedTime();
    const double span = watch.Mark();
    EXPECT_GE(span, first) << "the first span starts with the watch";
    const double sinceMark = watch.ElapsedTimeSinceMark();
    EXPECT_LT(seconds(watch.strElapsedTimeSinceMark()), watch.ElapsedTime());
    EXPECT_LT(sinceMark, seconds(watch.strElapsedTime()));
    EXPECT_GE(watch.ElapsedTime() - sinceMark, first) << "a mark does not move the start";
    EXPECT_GE(sinceMark, 0);
}

TEST(StopWatch, CountsSeconds)
{
    using std::chrono::steady_clock;
    const auto seconds = [](steady_clock::duration span) { return std::chrono::duration<double>(span).count(); };
    constexpr double tick = 0.05;  // no platform's clock has a longer one
    const auto before = steady_clock::now();
    const CStopWatch watch;
    const auto start = steady_clock::now();
    std::this_thread::sleep_for(std::chrono::milliseconds(400));
    const double least = seconds(steady_clock::now() - start) - tick;
    const double measured = watch.ElapsedTime();
    EXPECT_GE(measured, least);
    EXPECT_LE(measured, seconds(steady_clock::now() - before) + tick);
}

TEST(StopWatch, MeasuresAcrossTheOverflowOfTheClock)
{
    const OpenWatch watch;
    const auto now = static_cast<ULONG>(platform::Clock());
    const double hour = watch.getTimeSince(static_cast<LONG>(now - 3600000));
    EXPECT_GE(hour, 3600);
    EXPECT_LT(hour, 7200);
    const double ahead = watch.getTimeSince(static_cast<LONG>(now + 0x7FFFFFFF));
    EXPECT_LT(ahead, -2147483.0 + 3600) << "a difference of 32 bits has a sign";
}

TEST(StopWatch, GivesText)
{
    const CStopWatch watch;
    const auto text = [&watch](double seconds) { return testkit::Narrow(watch.getAsStr(seconds)); };
    EXPECT_EQ(text(0), "0.000000 seconds");
    EXPECT_EQ(text(2.5), "2.500000 seconds");
    EXPECT_EQ(text(-0.001), "-0.001000 seconds");
    EXPECT_EQ(text(1e60).size(), 63U) << "cut";
    for (const std::string& elapsed :
         {testkit::Narrow(watch.strElapsedTime()), testkit::Narrow(watch.strElapsedTimeSinceMark())}) {
        EXPECT_EQ(elapsed.substr(elapsed.find('.') + 4), "000 seconds") << "ticks of a millisecond: " << elapsed;
    }
}

}  // namespace
