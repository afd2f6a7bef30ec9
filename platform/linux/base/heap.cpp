// The process heap and the local heap: memory that the layer allocates and the caller frees through it.
#include "base/last_error.h"

#include <cstdlib>
#include <cstring>
#include <new>

HANDLE GetProcessHeap()
{
    // There is one heap only. Its handle is never dereferenced; it only has to differ from null.
    static char heap;
    return &heap;
}

// The published contract: a failing HeapAlloc does not set the last error.
LPVOID HeapAlloc(HANDLE, DWORD flags, SIZE_T bytes)
{
    void* const block = ::operator new(bytes, std::nothrow);
    if (block != nullptr && (flags & HEAP_ZERO_MEMORY) != 0)
        std::memset(block, 0, bytes);
    return block;
}

BOOL HeapFree(HANDLE, DWORD, LPVOID block)
{
    ::operator delete(block);
    return TRUE;
}

void* LocalAlloc(UINT, SIZE_T bytes)
{
    void* const block = std::malloc(bytes);
    return block != nullptr ? block : layer::Fail(ERROR_OUTOFMEMORY, block);
}

void* LocalFree(void* block)
{
    std::free(block);
    return nullptr;
}
