// The lock of one process. Copies of an object share one platform lock, which the last of them deletes.
#include "settings/tag_specification.h"
#include "system.h"
#include "tessmaru/primitives.h"

namespace utility {

// Make and Leave do the work of Init and Term. A virtual call in a constructor or destructor would not reach an
// override.
CCriticalSection::CCriticalSection()
{
    Make();
}

CCriticalSection::CCriticalSection(const CCriticalSection& other)
    : Locked(other.Locked.load(std::memory_order_relaxed)), Section(other.Section)
{
}

CCriticalSection& CCriticalSection::operator=(const CCriticalSection& other)
{
    Locked.store(other.Locked.load(std::memory_order_relaxed), std::memory_order_relaxed);
    Section = other.Section;
    return *this;
}

CCriticalSection::~CCriticalSection()
{
    Leave();
}

LONG CCriticalSection::Lock()
{
    EnterCriticalSection(Section.get());
    // Relaxed, here and below: the flag orders nothing. It is atomic only because IsLocked reads it without the lock.
    Locked.store(true, std::memory_order_relaxed);
    return 0;
}

// Blocks, in spite of its name: that is its contract.
LONG CCriticalSection::AttemptLock()
{
    return Lock();
}

LONG CCriticalSection::Unlock()
{
    LeaveCriticalSection(Section.get());
    // After the lock is free, so the flag may be late by a moment. By contract it is false after the first Unlock, even
    // if the thread still holds the lock.
    Locked.store(false, std::memory_order_relaxed);
    return 0;
}

LONG CCriticalSection::Init()
{
    return Make();
}

LONG CCriticalSection::Term()
{
    return Leave();
}

bool CCriticalSection::IsLocked() const
{
    return Locked.load(std::memory_order_relaxed);
}

LONG CCriticalSection::Make()
{
    std::unique_ptr<CRITICAL_SECTION> made(new CRITICAL_SECTION);
    InitializeCriticalSection(made.get());
    Section.reset(made.release(), [](CRITICAL_SECTION* section) {
        DeleteCriticalSection(section);
        delete section;
    });
    Locked.store(false, std::memory_order_relaxed);
    return 0;
}

LONG CCriticalSection::Leave()
{
    Section.reset();
    Locked.store(false, std::memory_order_relaxed);
    return 0;
}

}  // namespace utility
