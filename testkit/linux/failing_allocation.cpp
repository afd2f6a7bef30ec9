// Allocation that fails where a test says so, and counts its blocks.
#include "testkit/linux/failing_allocation.h"

#include <cstddef>
#include <new>

// The linker redirects the program's calls to the wrappers (--wrap), which call the C library.
extern "C" {
void* __real_malloc(std::size_t bytes);
void* __real_calloc(std::size_t count, std::size_t bytes);
void* __real_realloc(void* block, std::size_t bytes);
void __real_free(void* block);
void* __wrap_malloc(std::size_t bytes);
void* __wrap_calloc(std::size_t count, std::size_t bytes);
void* __wrap_realloc(void* block, std::size_t bytes);
void __wrap_free(void* block);
}

namespace {

thread_local int untilFailure = 0;
thread_local bool failed = false;
thread_local int liveBlocks = 0;

bool FailsNow()
{
    if (untilFailure == 0 || --untilFailure != 0)
        return false;
    failed = true;
    return true;
}

void* Counted(void* block)
{
    liveBlocks += block != nullptr;
    return block;
}

void* Allocate(std::size_t bytes) noexcept
{
    return FailsNow() ? nullptr : Counted(__real_malloc(bytes == 0 ? 1 : bytes));
}

void Free(void* block) noexcept
{
    liveBlocks -= block != nullptr;
    __real_free(block);
}

}  // namespace

namespace testkit {

void FailAllocation(int n)
{
    untilFailure = n;
    failed = failed && n == 0;
}

bool AllocationFailed()
{
    return failed;
}

int LiveBlocks()
{
    return liveBlocks;
}

}  // namespace testkit

void* __wrap_malloc(std::size_t bytes)
{
    return Allocate(bytes);
}

void* __wrap_calloc(std::size_t count, std::size_t bytes)
{
    return FailsNow() ? nullptr : Counted(__real_calloc(count, bytes));
}

void* __wrap_realloc(void* block, std::size_t bytes)
{
    if (FailsNow())
        return nullptr;
    void* const moved = __real_realloc(block, bytes);
    return block == nullptr ? Counted(moved) : moved;
}

void __wrap_free(void* block)
{
    Free(block);
}

void* operator new(std::size_t bytes)
{
    if (void* const block = Allocate(bytes))
        return block;
    throw std::bad_alloc();
}

void* operator new[](std::size_t bytes)
{
    return operator new(bytes);
}

void* operator new(std::size_t bytes, const std::nothrow_t&) noexcept
{
    return Allocate(bytes);
}

void* operator new[](std::size_t bytes, const std::nothrow_t&) noexcept
{
    return Allocate(bytes);
}

void operator delete(void* block) noexcept
{
    Free(block);
}

void operator delete[](void* block) noexcept
{
    Free(block);
}

void operator delete(void* block, std::size_t) noexcept
{
    Free(block);
}

void operator delete[](void* block, std::size_t) noexcept
{
    Free(block);
}
