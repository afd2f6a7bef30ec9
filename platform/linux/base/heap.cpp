// Memory that the platform allocates and the caller returns to it: the process heap and the local heap.
#include "base/last_error.h"

#include <cstdlib>
#include <cstring>
#include <new>

HANDLE GetProcessHeap()
{
    // There is one heap. Its handle only has to differ from null.
    static char heap;
    return &heap;
}

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
