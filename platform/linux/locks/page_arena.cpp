// Maps shared pages and repairs them when their file was truncated.
//
// An access to a mapped page beyond the end of its file raises SIGBUS. All pages lie in one reserved range of
// addresses, the arena. The signal handler therefore finds out from the address alone, without a lock, whether a fault
// belongs to a shared page, and to which file.
#include "locks/page_arena.h"

#include "base/fault_signals.h"
#include "base/lifecycle.h"

#include <array>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <fcntl.h>
#include <sys/mman.h>

namespace {

constexpr std::size_t MaxPages = 4096;
constexpr std::size_t ArenaBytes = MaxPages * layer::PageBytes;
constexpr int NoFile = -1;

// After this many repairs a process is truncating the file all the time, or the fault has another cause. The page then
// gets private memory, which ends the faults.
constexpr int MaxRepairs = 1000;

/// The state of one page of the arena. The handler reads it, so it is atomic and never freed.
struct PageState {
    std::atomic<int> File{NoFile};  // NoFile while the page is free
    std::atomic<int> Repairs{0};
};

std::array<PageState, MaxPages> pages;
std::atomic<std::byte*> arena{nullptr};

/// Gives a page storage again: the file's, or private memory if that fails. With private memory the lock no longer
/// excludes other processes, but no process crashes. Runs in a signal handler, so it makes system calls only.
bool Repair(std::byte* start, std::size_t index)
{
    const int file = pages[index].File.load(std::memory_order_relaxed);
    if (file == NoFile)
        return false;
    if (pages[index].Repairs.fetch_add(1, std::memory_order_relaxed) < MaxRepairs &&
        fallocate(file, 0, 0, layer::PageBytes) == 0)
        return true;
    return mmap(start + index * layer::PageBytes, layer::PageBytes, PROT_READ | PROT_WRITE,
                MAP_PRIVATE | MAP_ANONYMOUS | MAP_FIXED, -1, 0) != MAP_FAILED;
}

/// Handles SIGBUS. A signal that another process sent has no address and is not a fault.
/// @return true if the fault was an access to a guarded page, which has storage again
bool RepairFault(int signal, const siginfo_t& info, void*)
{
    std::byte* const start = arena.load(std::memory_order_relaxed);
    auto* const at = static_cast<std::byte*>(info.si_addr);
    if (signal != SIGBUS || info.si_code <= 0 || start == nullptr || at < start || at >= start + ArenaBytes)
        return false;
    const int savedError = errno;
    const bool repaired = Repair(start, static_cast<std::size_t>(at - start) / layer::PageBytes);
    errno = savedError;
    return repaired;
}

void ReleaseArena()
{
    std::byte* const start = arena.exchange(nullptr);
    if (start != nullptr)
        munmap(start, ArenaBytes);
}

constinit layer::LifecycleHooks hooks{.AfterForkInChild = nullptr, .AtThreadEnd = nullptr, .AtUnload = ReleaseArena};

/// The arena, reserved by the first call. Callers hold the opening lock of named mutexes, so two first calls never run
/// at the same time.
std::byte* Arena()
{
    std::byte* start = arena.load(std::memory_order_relaxed);
    if (start != nullptr)
        return start;
    void* const mapped = mmap(nullptr, ArenaBytes, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
    if (mapped == MAP_FAILED)
        return nullptr;
    start = static_cast<std::byte*>(mapped);
    arena.store(start, std::memory_order_relaxed);
    layer::HandleFaults(layer::FaultStage::repair, RepairFault, {SIGBUS});
    // Registered after the hooks of HandleFaults, so run before them: faults in the arena are repaired as long as it
    // exists.
    layer::RegisterHooks(hooks);
    return start;
}

std::size_t IndexOf(void* page)
{
    return static_cast<std::size_t>(static_cast<std::byte*>(page) - arena.load(std::memory_order_relaxed)) /
           layer::PageBytes;
}

}  // namespace

namespace layer {

void* MapGuardedPage(int file)
{
    std::byte* const start = Arena();
    if (start == nullptr)
        return nullptr;
    for (std::size_t index = 0; index < MaxPages; ++index) {
        int expected = NoFile;
        if (!pages[index].File.compare_exchange_strong(expected, file))
            continue;
        pages[index].Repairs = 0;
        void* const page =
            mmap(start + index * PageBytes, PageBytes, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_FIXED, file, 0);
        if (page != MAP_FAILED)
            return page;
        pages[index].File = NoFile;
        return nullptr;
    }
    errno = ENFILE;
    return nullptr;
}

bool RemapGuardedPage(void* page, int file)
{
    pages[IndexOf(page)].File.store(file, std::memory_order_relaxed);
    // MAP_FIXED replaces the old mapping in one step, so the address is never unmapped.
    return mmap(page, PageBytes, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_FIXED, file, 0) != MAP_FAILED;
}

void UnmapGuardedPage(void* page)
{
    const std::size_t index = IndexOf(page);
    // Reserved memory replaces the page, so that no other mapping of the process gets an address inside the arena.
    static_cast<void>(mmap(page, PageBytes, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE | MAP_FIXED, -1, 0));
    pages[index].File.store(NoFile, std::memory_order_relaxed);
}

}  // namespace layer
