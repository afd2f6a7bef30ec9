// Reads the registers of a fault whose names differ between x86-64 and x86-32.
#include "faults/fault.h"

#include "base/fault_signals.h"

std::uintptr_t layer::Fault::Instruction() const
{
#ifdef __x86_64__
    return Register(REG_RIP);
#else
    return Register(REG_EIP);
#endif
}

std::uintptr_t layer::Fault::Address() const
{
#ifdef __x86_64__
    return Register(REG_CR2);
#else
    return Registers.cr2;
#endif
}

bool layer::Fault::IsWrite() const
{
    constexpr std::uintptr_t errorOnWrite = 2;
    return (Register(REG_ERR) & errorOnWrite) != 0;
}

bool layer::Fault::IsBadCall() const
{
    return Number() == pageFault && Address() == Instruction();
}
