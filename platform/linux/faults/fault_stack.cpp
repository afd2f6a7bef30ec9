// Allocates and releases alternate signal stacks, each with a guard page below it.
#include "faults/fault_stack.h"

#include <csignal>
#include <sys/auxv.h>
#include <sys/mman.h>

namespace {

// Room for the handler, and for a translator and the unwinder after a stack overflow.
constexpr std::size_t StackBytes = 64UL * 1024;
constexpr std::size_t PageBytes = 4096;

/// The size of a mapping: the guard page, StackBytes and the kernel's signal frame, in whole pages. The frame holds all
/// vector registers, so its size depends on the processor.
std::size_t MappedBytes()
{
    const std::size_t frame = getauxval(AT_MINSIGSTKSZ);
    return (StackBytes + frame + 2 * PageBytes - 1) & ~(PageBytes - 1);
}

}  // namespace

void* layer::MakeSignalStack()
{
    // A stack that the host program has set up stays in use.
    stack_t current{};
    if (sigaltstack(nullptr, &current) != 0 || (current.ss_flags & SS_DISABLE) == 0)
        return nullptr;
    const std::size_t bytes = MappedBytes();
    void* const mapped = mmap(nullptr, bytes, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_STACK, -1, 0);
    if (mapped == MAP_FAILED)
        return nullptr;
    stack_t stack{};
    stack.ss_sp = static_cast<char*>(mapped) + PageBytes;
    stack.ss_size = bytes - PageBytes;
    if (mprotect(mapped, PageBytes, PROT_NONE) == 0 && sigaltstack(&stack, nullptr) == 0)
        return mapped;
    munmap(mapped, bytes);
    return nullptr;
}

void layer::FreeSignalStack(void* stack)
{
    if (stack == nullptr)
        return;
    // If the host program has installed another stack since then, that one stays in use.
    stack_t current{};
    if (sigaltstack(nullptr, &current) == 0 && current.ss_sp == static_cast<char*>(stack) + PageBytes) {
        stack_t none{};
        none.ss_flags = SS_DISABLE;
        sigaltstack(&none, nullptr);
    }
    munmap(stack, MappedBytes());
}
