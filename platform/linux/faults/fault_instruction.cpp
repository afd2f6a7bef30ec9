// Reads as much of the processor's code as the two questions need. The instruction and its operand are there: the
// processor has just read them.
#include "faults/fault_instruction.h"

#include "base/fault_signals.h"

#include <cstring>
#include <optional>

namespace {

using layer::Fault;

#ifdef __x86_64__
constexpr bool LongMode = true;
constexpr int Registers[] = {REG_RAX, REG_RCX, REG_RDX, REG_RBX, REG_RSP, REG_RBP, REG_RSI, REG_RDI,
                             REG_R8,  REG_R9,  REG_R10, REG_R11, REG_R12, REG_R13, REG_R14, REG_R15};
#else
constexpr bool LongMode = false;
constexpr int Registers[] = {REG_EAX, REG_ECX, REG_EDX, REG_EBX, REG_ESP, REG_EBP, REG_ESI, REG_EDI};
#endif

/// The base of the segment of thread-local data, which starts with its own address.
std::uintptr_t ThreadBase()
{
    std::uintptr_t base = 0;
#ifdef __x86_64__
    asm("movq %%fs:0, %0" : "=r"(base));
#else
    asm("movl %%gs:0, %0" : "=r"(base));
#endif
    return base;
}

/// An instruction from its first byte on, prefixes already behind it.
class Instruction {
public:
    explicit Instruction(const Fault& fault) : From(fault), At(reinterpret_cast<const BYTE*>(fault.Instruction()))
    {
        while (TakePrefix()) {
        }
        if (LongMode && (*At & 0xF0) == 0x40)
            Rex = *At++;
    }

    BYTE Next() { return *At++; }

    /// The operand that a ModRM byte names, of a width in bytes. Nothing where that is not to be known.
    std::optional<std::uint64_t> Operand(BYTE modRm, unsigned int width)
    {
        std::uint64_t value = 0;
        if (modRm >> 6 == 3) {
            value = RegisterOperand(modRm & 7U, width);
        } else {
            if (IsForeignSegment || HasOtherAddresses)
                return std::nullopt;
            std::memcpy(&value, reinterpret_cast<const void*>(Address(modRm)), width);
            return value;
        }
        return width == 8 ? value : value & ((std::uint64_t{1} << (width * 8)) - 1);
    }

    /// Of an instruction whose plain form works on 32 bits.
    unsigned int Width() const { return (Rex & 8) != 0 ? 8 : (IsShort ? 2 : 4); }

private:
    bool TakePrefix()
    {
        constexpr BYTE threadSegment = LongMode ? 0x64 : 0x65;
        constexpr BYTE otherSegment = LongMode ? 0x65 : 0x64;
        switch (*At) {
            case threadSegment: Segment = ThreadBase(); break;
            case otherSegment: IsForeignSegment = true; break;
            case 0x66: IsShort = true; break;
            case 0x67: HasOtherAddresses = true; break;
            case 0x26:
            case 0x2E:
            case 0x36:
            case 0x3E:
            case 0xF0:
            case 0xF2:
            case 0xF3: break;
            default: return false;
        }
        ++At;
        return true;
    }

    std::uintptr_t RegisterValue(unsigned int number) const { return From.Register(Registers[number]); }

    std::uint64_t RegisterOperand(unsigned int number, unsigned int width) const
    {
        // Without the newer prefix the second four of the bytes are the upper halves of the first four registers.
        if (width == 1 && Rex == 0 && number >= 4)
            return RegisterValue(number - 4) >> 8;
        return RegisterValue(number | Extended(1));
    }

    /// The fourth bit of a register's number, from its place in the prefix.
    unsigned int Extended(unsigned int bit) const { return (Rex & bit) != 0 ? 8 : 0; }

    template <class Number>
    std::uintptr_t Displacement()
    {
        Number value;
        std::memcpy(&value, At, sizeof value);
        At += sizeof value;
        return static_cast<std::uintptr_t>(static_cast<std::intptr_t>(value));
    }

    std::uintptr_t Address(BYTE modRm)
    {
        const unsigned int mode = modRm >> 6;
        const unsigned int base = modRm & 7U;
        std::uintptr_t address = Segment;
        if (mode == 0 && base == 5) {
            // No instruction here has anything behind the displacement.
            address += Displacement<std::int32_t>();
            return LongMode ? address + reinterpret_cast<std::uintptr_t>(At) : address;
        }
        address += base == 4 ? Indexed(mode) : RegisterValue(base | Extended(1));
        if (mode == 1)
            address += Displacement<std::int8_t>();
        if (mode == 2)
            address += Displacement<std::int32_t>();
        return address;
    }

    std::uintptr_t Indexed(unsigned int mode)
    {
        const BYTE sib = Next();
        const unsigned int base = sib & 7U;
        const unsigned int index = ((sib >> 3) & 7U) | Extended(2);
        std::uintptr_t address = index == 4 ? 0 : RegisterValue(index) << (sib >> 6);
        if (base == 5 && mode == 0)
            address += Displacement<std::int32_t>();
        else
            address += RegisterValue(base | Extended(1));
        return address;
    }

    const Fault& From;
    const BYTE* At;
    BYTE Rex = 0;
    bool IsShort = false;
    bool IsForeignSegment = false;
    bool HasOtherAddresses = false;
    std::uintptr_t Segment = 0;
};

bool IsPrivilegedOfTwoBytes(BYTE opcode)
{
    switch (opcode) {
        case 0x00:  // lldt, ltr
        case 0x01:  // lgdt, lidt, lmsw, invlpg
        case 0x06:  // clts
        case 0x07:  // sysret
        case 0x08:  // invd
        case 0x09:  // wbinvd
        case 0x20:  // mov from and to control and debug registers
        case 0x21:
        case 0x22:
        case 0x23:
        case 0x30:  // wrmsr
        case 0x31:  // rdtsc
        case 0x32:  // rdmsr
        case 0x33:  // rdpmc
        case 0x35:  // sysexit
            return true;
        default: return false;
    }
}

}  // namespace

bool layer::DividesByOtherThanZero(const Fault& fault)
{
    Instruction instruction(fault);
    const BYTE opcode = instruction.Next();
    if (opcode != 0xF6 && opcode != 0xF7)
        return false;
    const BYTE modRm = instruction.Next();
    const std::optional<std::uint64_t> divisor = instruction.Operand(modRm, opcode == 0xF6 ? 1 : instruction.Width());
    return divisor.value_or(0) != 0;
}

bool layer::IsPrivileged(const Fault& fault)
{
    if (fault.Number() != layer::generalProtection)
        return false;
    Instruction instruction(fault);
    const BYTE opcode = instruction.Next();
    switch (opcode) {
        case 0x0F: return IsPrivilegedOfTwoBytes(instruction.Next());
        case 0xF4:  // hlt
        case 0xFA:  // cli
        case 0xFB:  // sti
            return true;
        default:  // in, out, and the same for strings
            return (opcode >= 0x6C && opcode <= 0x6F) || (opcode >= 0xE4 && opcode <= 0xE7) ||
                   (opcode >= 0xEC && opcode <= 0xEF);
    }
}
