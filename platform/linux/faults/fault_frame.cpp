// Joins a function to the code that failed, for the unwinder.
//
// The unwind data of `layer_at_fault` restore the whole state at the fault from the record, whose address is in rbx
// (ebx):
//   cfi_signal_frame          the address is that of the failing instruction itself, not of one after a call
//   cfi_escape 0x0f           DW_CFA_def_cfa_expression: the frame above starts at Fault::Stack
//   cfi_escape 0x10           DW_CFA_expression: a register of the frame above is saved at this address: its return
//                             address in Fault::UnwindAt, the others in Fault::Registers
// The offsets take two bytes in their encoding (sleb128) so that all of them have the same length.
#include "faults/fault_frame.h"

#include "../../x86/flags.h"

#include <cstddef>

#ifdef __x86_64__
__asm__(R"(
    .pushsection .text
    .macro saved register, index
    .cfi_escape 0x10, \register, 3, 0x73, ((16 + 8 * \index) & 0x7f) | 0x80, (16 + 8 * \index) >> 7
    .endm
    .hidden layer_at_fault
    .globl layer_at_fault
    .type layer_at_fault, @function
layer_at_fault:
    .cfi_startproc
    .cfi_signal_frame
    pushq %rbx
    movq %rdi, %rbx
    .cfi_escape 0x0f, 3, 0x73, 8, 0x06
    .cfi_escape 0x10, 16, 2, 0x73, 0
    saved 0, 13     # rax, and its index in gregs
    saved 1, 12     # rdx
    saved 2, 14     # rcx
    saved 3, 11     # rbx
    saved 4, 9      # rsi
    saved 5, 8      # rdi
    saved 6, 10     # rbp
    saved 8, 0      # r8 to r15
    saved 9, 1
    saved 10, 2
    saved 11, 3
    saved 12, 4
    saved 13, 5
    saved 14, 6
    saved 15, 7
    call *%rsi
    popq %rbx
    ret
    .cfi_endproc
    .size layer_at_fault, . - layer_at_fault
    .popsection
)");
#else
__asm__(R"(
    .pushsection .text
    .macro saved register, index
    .cfi_escape 0x10, \register, 3, 0x73, ((8 + 4 * \index) & 0x7f) | 0x80, (8 + 4 * \index) >> 7
    .endm
    .hidden layer_at_fault
    .globl layer_at_fault
    .type layer_at_fault, @function
layer_at_fault:
    .cfi_startproc
    .cfi_signal_frame
    pushl %ebx
    movl %eax, %ebx
    .cfi_escape 0x0f, 3, 0x73, 4, 0x06
    .cfi_escape 0x10, 8, 2, 0x73, 0
    saved 0, 11     # eax, and its index in gregs
    saved 1, 10     # ecx
    saved 2, 9      # edx
    saved 3, 8      # ebx
    saved 5, 6      # ebp
    saved 6, 5      # esi
    saved 7, 4      # edi
    subl $4, %esp
    pushl %ebx
    call *%edx
    addl $8, %esp
    popl %ebx
    ret
    .cfi_endproc
    .size layer_at_fault, . - layer_at_fault
    .popsection
)");
#endif

static_assert(offsetof(layer::Fault, UnwindAt) == 0 && offsetof(layer::Fault, Stack) == sizeof(void*) &&
              offsetof(layer::Fault, Registers) + offsetof(mcontext_t, gregs) == 2 * sizeof(void*));

void layer::ContinueAtFault(ucontext_t& context, Fault& fault, FaultFunction* function, std::uintptr_t stack)
{
    greg_t* const registers = context.uc_mcontext.gregs;
    constexpr std::uintptr_t redZone =
        sizeof(void*) == 8 ? 128 : 0;  // used by the failing code below its stack pointer
    const std::uintptr_t aligned = (stack - redZone) & ~std::uintptr_t{15};
    const auto entry = static_cast<greg_t>(aligned - sizeof(void*));  // as if a call had pushed its return address
    const auto code = reinterpret_cast<greg_t>(&layer_at_fault);
#ifdef __x86_64__
    registers[REG_RSP] = entry;
    registers[REG_RIP] = code;
    registers[REG_RDI] = reinterpret_cast<greg_t>(&fault);
    registers[REG_RSI] = reinterpret_cast<greg_t>(function);
#else
    registers[REG_ESP] = entry;
    registers[REG_EIP] = code;
    registers[REG_EAX] = reinterpret_cast<greg_t>(&fault);
    registers[REG_EDX] = reinterpret_cast<greg_t>(function);
#endif
    platform::ResetFlags(registers[REG_EFL]);
}
