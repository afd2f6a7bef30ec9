// Makes alternate signal stacks, each with a guard page below it.
#include "faults/fault_stack.h"

#include <csignal>
#include <sys/auxv.h>
#include <sys/mman.h>

namespace {

// For the handler, for a translator and for the unwinder; the kernel's frame comes on top.
constexpr std::size_t StackBytes = 64UL * 1024;
constexpr std::size_t PageBytes = 4096;

std::size_t MappedBytes()
{
    const std::size_t frame = getauxval(AT_MINSIGSTKSZ);
    return (StackBytes + frame + 2 * PageBytes - 1) & ~(PageBytes - 1);
}

}  // namespace

void* layer::MakeSignalStack()
{
    stack_t current{};
    if (sigaltstack(nullptr, &current) != 0 || (current.ss_flags & SS_DISABLE) == 0)
        return nullptr;
    const std::size_t bytes = MappedBytes();
    void* const made = mmap(nullptr, bytes, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_STACK, -1, 0);
    if (made == MAP_FAILED)
        return nullptr;
    stack_t stack{};
    stack.ss_sp = static_cast<char*>(made) + PageBytes;
    stack.ss_size = bytes - PageBytes;
    // The lowest page is a guard.
    if (mprotect(made, PageBytes, PROT_NONE) == 0 && sigaltstack(&stack, nullptr) == 0)
        return made;
    munmap(made, bytes);
    return nullptr;
}

void layer::FreeSignalStack(void* stack)
{
    if (stack == nullptr)
        return;
    stack_t current{};
    if (sigaltstack(nullptr, &current) == 0 && current.ss_sp == static_cast<char*>(stack) + PageBytes) {
        stack_t none{};
        none.ss_flags = SS_DISABLE;
        sigaltstack(&none, nullptr);
    }
    munmap(stack, MappedBytes());
}
