// All shared pages lie in one stretch of addresses, so the handler of SIGBUS sees at once whether a fault is
// one of theirs and which file it belongs to, without a lock.
#include "locks/page_arena.h"

#include "base/fault_signals.h"
#include "base/lifecycle.h"

#include <array>
#include <cerrno>
#include <csignal>
#include <fcntl.h>
#include <sys/mman.h>

namespace {

constexpr std::size_t Places = 4096;
constexpr std::size_t ArenaBytes = Places * layer::PageBytes;
constexpr int NoFile = -1;

// A fault that comes back after so many repairs has another cause than a file that was cut off.
constexpr int MaxRepairs = 1000;

struct Guarded {
    std::atomic<int> File{NoFile};
    std::atomic<int> Repairs{0};
};

std::array<Guarded, Places> places;
std::atomic<std::byte*> arena{nullptr};

/// Puts storage behind a page again: the file's own, or memory of this process where that fails. Only bare
/// system calls: this runs in a signal handler.
bool Repair(std::byte* start, std::size_t place)
{
    const int file = places[place].File.load(std::memory_order_relaxed);
    if (file == NoFile)
        return false;
    if (places[place].Repairs.fetch_add(1, std::memory_order_relaxed) < MaxRepairs &&
        fallocate(file, 0, 0, layer::PageBytes) == 0)
        return true;
    return mmap(start + place * layer::PageBytes, layer::PageBytes, PROT_READ | PROT_WRITE,
                MAP_PRIVATE | MAP_ANONYMOUS | MAP_FIXED, -1, 0) != MAP_FAILED;
}

/// Whether the fault was an access to a guarded page whose file was cut off. The page has storage again then.
bool RepairGuarded(int signal, const siginfo_t& info, void*)
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

/// The arena, made by the first call. Under the lock of those who open mutexes.
std::byte* Arena()
{
    std::byte* start = arena.load(std::memory_order_relaxed);
    if (start != nullptr)
        return start;
    void* const made = mmap(nullptr, ArenaBytes, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
    if (made == MAP_FAILED)
        return nullptr;
    start = static_cast<std::byte*>(made);
    arena.store(start, std::memory_order_relaxed);
    layer::HandleFaults(layer::FaultStage::repair, RepairGuarded, {SIGBUS});
    // After the signal's hooks, so that the arena is released while its faults are still repaired.
    layer::RegisterHooks(hooks);
    return start;
}

std::size_t PlaceOf(void* page)
{
    return static_cast<std::size_t>(static_cast<std::byte*>(page) - arena.load(std::memory_order_relaxed)) /
           layer::PageBytes;
}

}  // namespace

namespace layer {

void* MapGuarded(int file)
{
    std::byte* const start = Arena();
    if (start == nullptr)
        return nullptr;
    for (std::size_t place = 0; place < Places; ++place) {
        int nobody = NoFile;
        if (!places[place].File.compare_exchange_strong(nobody, file))
            continue;
        places[place].Repairs = 0;
        void* const page =
            mmap(start + place * PageBytes, PageBytes, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_FIXED, file, 0);
        if (page != MAP_FAILED)
            return page;
        places[place].File = NoFile;
        return nullptr;
    }
    errno = ENFILE;
    return nullptr;
}

bool RemapGuarded(void* page, int file)
{
    places[PlaceOf(page)].File.store(file, std::memory_order_relaxed);
    return mmap(page, PageBytes, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_FIXED, file, 0) != MAP_FAILED;
}

void UnmapGuarded(void* page)
{
    const std::size_t place = PlaceOf(page);
    // The address stays the arena's.
    static_cast<void>(mmap(page, PageBytes, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE | MAP_FIXED, -1, 0));
    places[place].File.store(NoFile, std::memory_order_relaxed);
}

}  // namespace layer
