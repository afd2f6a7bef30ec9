// Decodes x86 instructions as far as divisions and privileged instructions need it.
//
// An instruction is: prefixes, on x86-64 perhaps a REX prefix, the opcode, a ModRM byte that describes an operand,
// perhaps a SIB byte with base and index of an address, and a displacement. The instruction and a division's operand
// are readable: the processor has just read them.
#include "faults/fault_instruction.h"

#include "base/fault_signals.h"

#include <cstring>
#include <optional>

namespace {

using layer::Fault;

#ifdef __x86_64__
constexpr bool LongMode = true;
// In the order in which instructions number the registers.
constexpr int GeneralRegisters[] = {REG_RAX, REG_RCX, REG_RDX, REG_RBX, REG_RSP, REG_RBP, REG_RSI, REG_RDI,
                                    REG_R8,  REG_R9,  REG_R10, REG_R11, REG_R12, REG_R13, REG_R14, REG_R15};
#else
constexpr bool LongMode = false;
constexpr int GeneralRegisters[] = {REG_EAX, REG_ECX, REG_EDX, REG_EBX, REG_ESP, REG_EBP, REG_ESI, REG_EDI};
#endif

/// The base address of the segment of thread-local data (fs on x86-64, gs on x86-32). Its first word is its own
/// address.
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

/// Reads an instruction from its opcode on; the constructor reads the prefixes.
class InstructionReader {
public:
    explicit InstructionReader(const Fault& fault)
        : Context(fault), At(reinterpret_cast<const BYTE*>(fault.Instruction()))
    {
        while (TakePrefix()) {
        }
        if (LongMode && (*At & 0xF0) == 0x40)
            Rex = *At++;
    }

    BYTE Next() { return *At++; }

    /// The value of an operand.
    /// @param modRm  the ModRM byte, which must be the byte read last
    /// @param width  in bytes
    /// @return nothing if the operand's address cannot be determined
    std::optional<std::uint64_t> Operand(BYTE modRm, unsigned int width)
    {
        std::uint64_t value = 0;
        if (modRm >> 6 == 3) {
            value = RegisterOperand(modRm & 7U, width);
        } else {
            if (HasOtherSegment || HasAddressSizePrefix)
                return std::nullopt;
            std::memcpy(&value, reinterpret_cast<const void*>(Address(modRm)), width);
            return value;
        }
        return width == 8 ? value : value & ((std::uint64_t{1} << (width * 8)) - 1);
    }

    /// The width in bytes of an operand that has 32 bits without prefixes.
    unsigned int OperandWidth() const { return (Rex & 8) != 0 ? 8 : (HasOperandSizePrefix ? 2 : 4); }

private:
    /// Reads one prefix, if there is one. es, cs, ss and ds (0x26 to 0x3E) start at address 0 in flat memory; lock and
    /// the two rep prefixes (0xF0 to 0xF3) do not change the operand.
    bool TakePrefix()
    {
        constexpr BYTE threadSegment = LongMode ? 0x64 : 0x65;
        constexpr BYTE otherSegment = LongMode ? 0x65 : 0x64;
        switch (*At) {
            case threadSegment: Segment = ThreadBase(); break;
            case otherSegment: HasOtherSegment = true; break;
            case 0x66: HasOperandSizePrefix = true; break;
            case 0x67: HasAddressSizePrefix = true; break;  // another form of addresses, which is not decoded here
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

    std::uintptr_t RegisterValue(unsigned int number) const { return Context.Register(GeneralRegisters[number]); }

    std::uint64_t RegisterOperand(unsigned int number, unsigned int width) const
    {
        // Without a REX prefix the byte registers 4 to 7 are ah, ch, dh and bh: bits 8 to 15 of the first four
        // registers.
        if (width == 1 && Rex == 0 && number >= 4)
            return RegisterValue(number - 4) >> 8;
        return RegisterValue(number | RexExtension(1));
    }

    /// The fourth bit of a register's number, which the REX prefix has.
    /// @param bit  1 for the register or the base of an operand, 2 for the index
    unsigned int RexExtension(unsigned int bit) const { return (Rex & bit) != 0 ? 8 : 0; }

    template <class Number>
    std::uintptr_t Displacement()
    {
        Number value;
        std::memcpy(&value, At, sizeof value);
        At += sizeof value;
        return static_cast<std::uintptr_t>(static_cast<std::intptr_t>(value));
    }

    /// The address of an operand in memory.
    std::uintptr_t Address(BYTE modRm)
    {
        const unsigned int mode = modRm >> 6;
        const unsigned int base = modRm & 7U;
        std::uintptr_t address = Segment;
        if (mode == 0 && base == 5) {
            // On x86-64 the displacement counts from the end of the instruction. In a division it is the last part.
            address += Displacement<std::int32_t>();
            return LongMode ? address + reinterpret_cast<std::uintptr_t>(At) : address;
        }
        address += base == 4 ? Indexed(mode) : RegisterValue(base | RexExtension(1));
        if (mode == 1)
            address += Displacement<std::int8_t>();
        if (mode == 2)
            address += Displacement<std::int32_t>();
        return address;
    }

    /// The part of an address that a SIB byte describes: base plus scaled index. Index 4 means none; base 5 in mode 0
    /// means a displacement instead of a base.
    std::uintptr_t Indexed(unsigned int mode)
    {
        const BYTE sib = Next();
        const unsigned int base = sib & 7U;
        const unsigned int index = ((sib >> 3) & 7U) | RexExtension(2);
        std::uintptr_t address = index == 4 ? 0 : RegisterValue(index) << (sib >> 6);
        if (base == 5 && mode == 0)
            address += Displacement<std::int32_t>();
        else
            address += RegisterValue(base | RexExtension(1));
        return address;
    }

    const Fault& Context;
    const BYTE* At;
    BYTE Rex = 0;
    bool HasOperandSizePrefix = false;
    bool HasOtherSegment = false;
    bool HasAddressSizePrefix = false;
    std::uintptr_t Segment = 0;
};

/// @param opcode  the byte after 0x0F
bool IsPrivilegedTwoByteOpcode(BYTE opcode)
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

bool layer::DividesByNonZero(const Fault& fault)
{
    InstructionReader instruction(fault);
    const BYTE opcode = instruction.Next();
    if (opcode != 0xF6 && opcode != 0xF7)  // div and idiv, of one byte and of more
        return false;
    const BYTE modRm = instruction.Next();
    const std::optional<std::uint64_t> divisor =
        instruction.Operand(modRm, opcode == 0xF6 ? 1 : instruction.OperandWidth());
    return divisor.value_or(0) != 0;
}

bool layer::IsPrivileged(const Fault& fault)
{
    if (fault.Number() != layer::generalProtection)
        return false;
    InstructionReader instruction(fault);
    const BYTE opcode = instruction.Next();
    switch (opcode) {
        case 0x0F: return IsPrivilegedTwoByteOpcode(instruction.Next());
        case 0xF4:  // hlt
        case 0xFA:  // cli
        case 0xFB:  // sti
            return true;
        default:  // in, out, and the same for strings
            return (opcode >= 0x6C && opcode <= 0x6F) || (opcode >= 0xE4 && opcode <= 0xE7) ||
                   (opcode >= 0xEC && opcode <= 0xEF);
    }
}
