// Critical sections: recursive locks of one process, each a lock word, an owner and the owner's count of entries.
//
// Word is the lock itself (see LockWord). OwningThread only serves to recognise a further entry of the owner;
// RecursionCount belongs to the owner and needs no atomic access.
#include "base/futex.h"
#include "base/lifecycle.h"
#include "base/process.h"

namespace {

// CRITICAL_SECTION is a plain record that callers copy and clear, so its fields cannot be declared atomic. They are
// accessed atomically while the section is in use.
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
/// thread of the child has the same address. The load may be relaxed: only the calling thread itself stores its own
/// value.
bool IsOwnedByCaller(CRITICAL_SECTION* section)
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
    if (IsOwnedByCaller(section)) {
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
    // An unbalanced call must not release another thread's lock.
    if (!IsOwnedByCaller(section) || --section->RecursionCount != 0)
        return;
    Owner(section).store(0, std::memory_order_relaxed);  // first: after the unlock the next owner writes it
    layer::UnlockWord(Word(section));
}

void DeleteCriticalSection(CRITICAL_SECTION* section)
{
    *section = CRITICAL_SECTION{};
}
