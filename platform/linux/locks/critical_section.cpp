// Critical sections: a lock word, its owner and the owner's count of entries.
#include "base/futex.h"
#include "base/lifecycle.h"
#include "base/process.h"

namespace {

// The record is a plain struct that callers copy and clear. Its fields are accessed atomically while it is in use.
std::atomic<std::uint32_t>& Word(CRITICAL_SECTION* section)
{
    static_assert(sizeof(std::atomic<std::uint32_t>) == sizeof(section->Word));
    return reinterpret_cast<std::atomic<std::uint32_t>&>(section->Word);
}

std::atomic_ref<std::uintptr_t> Owner(CRITICAL_SECTION* section)
{
    return std::atomic_ref<std::uintptr_t>(section->OwningThread);
}

/// Whether the calling thread owns the section. A section locked before a fork has no owner in the child, even if a
/// thread of the child has the same address.
bool IsMine(CRITICAL_SECTION* section)
{
    return Owner(section).load(std::memory_order_relaxed) == layer::CurrentThread() &&
           layer::IsLockedInThisProcess(Word(section));
}

}  // namespace

void InitializeCriticalSection(CRITICAL_SECTION* section)
{
    layer::WatchForks();
    *section = CRITICAL_SECTION{};
}

void EnterCriticalSection(CRITICAL_SECTION* section)
{
    if (IsMine(section)) {
        ++section->RecursionCount;
        return;
    }
    layer::Deadline never(INFINITE);
    layer::LockWord(Word(section), never);
    Owner(section).store(layer::CurrentThread(), std::memory_order_relaxed);
    section->RecursionCount = 1;
}

void LeaveCriticalSection(CRITICAL_SECTION* section)
{
    // A stray call must not free another thread's lock.
    if (!IsMine(section) || --section->RecursionCount != 0)
        return;
    Owner(section).store(0, std::memory_order_relaxed);
    layer::UnlockWord(Word(section));
}

void DeleteCriticalSection(CRITICAL_SECTION* section)
{
    *section = CRITICAL_SECTION{};
}
