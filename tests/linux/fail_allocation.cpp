#include "fail_allocation.h"

#include <cstdlib>
#include <new>

namespace {

thread_local int untilFailure = 0;
thread_local bool failed = false;
thread_local int liveBlocks = 0;

void* Allocate(std::size_t bytes) noexcept
{
    if (untilFailure > 0 && --untilFailure == 0) {
        failed = true;
        return nullptr;
    }
    void* const block = std::malloc(bytes == 0 ? 1 : bytes);
    liveBlocks += block != nullptr;
    return block;
}

void Free(void* block) noexcept
{
    liveBlocks -= block != nullptr;
    std::free(block);
}

}  // namespace

namespace support {

void FailAllocation(int n)
{
    untilFailure = n;
    failed = false;
}

bool AllocationFailed()
{
    return failed;
}

int LiveBlocks()
{
    return liveBlocks;
}

}  // namespace support

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
