// Decides which faults are those of the host program.
#include "faults/host.h"

#include "base/fault_signals.h"
#include "faults/guarded.h"
#include "faults/handler_search.h"

#include <cstring>

namespace {

// No memory is ever mapped below, so no handler can provide it there.
constexpr std::uintptr_t LowestMemory = 0x10000;

/// Repeats an access without an effect.
bool IsAccessible(std::uintptr_t address, bool forWriting)
{
    auto* const byte = reinterpret_cast<unsigned char*>(address);
    return layer::Guarded([=] {
        if (forWriting)
            asm volatile("lock orb $0, %0" : "+m"(*byte));
        else
            asm volatile("testb $0, %0" : : "m"(*byte));
    });
}

}  // namespace

bool layer::IsHostCode(const Fault& fault)
{
    return !IsInLoadedFile(fault.UnwindAt);
}

bool layer::MayHostRepair(const Fault& fault)
{
    return fault.Number() == pageFault && fault.Address() >= LowestMemory && !fault.StackOverflow;
}

bool layer::HostRepairs(const Fault& fault, const siginfo_t& info, ucontext_t& context)
{
    if (!HasFormerHandler(fault.Signal))
        return false;
    ForwardFault(fault.Signal, info, &context);
    // A handler that continues elsewhere has changed the registers; one that gives up often restores the default
    // action.
    if (std::memcmp(context.uc_mcontext.gregs, fault.Registers.gregs, sizeof fault.Registers.gregs) != 0 ||
        !HandlesSignal(fault.Signal))
        return true;
    // A bad call cannot be tried again here: the handler counts as one that has made the memory executable.
    return MayHostRepair(fault) && (fault.IsBadCall() || IsAccessible(fault.Address(), fault.IsWrite()));
}
