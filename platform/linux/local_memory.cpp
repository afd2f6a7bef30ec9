// Memory that the platform hands out and takes back by itself.
#include "layer.h"

#include <cstdlib>

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
