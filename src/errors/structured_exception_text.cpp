// The texts of processor faults.
#include "errors/structured_exception_text.h"

#include "settings/tag_specification.h"

#include <array>
#include <cinttypes>
#include <cstdio>
#include <exception>

namespace {

struct Row {
    std::uint32_t Code;
    const char* Text;
};

/// The published descriptions of the codes; each ends in a blank. An access violation has a text with the address.
constexpr Row Rows[] = {
    {EXCEPTION_DATATYPE_MISALIGNMENT,
     "The thread attempted to read or write data that is misaligned on hardware that does not provide alignment. "
     "For example, 16-bit values must be aligned on 2-byte boundaries, 32-bit values on 4-byte boundaries, "
     "and so on. "},
    {EXCEPTION_SINGLE_STEP,
     "A trace trap or other single-instruction mechanism signaled that one instruction has been executed. "},
    {EXCEPTION_NONCONTINUABLE_EXCEPTION,
     "The thread attempted to continue execution after a noncontinuable exception occurred. "},
    {EXCEPTION_ARRAY_BOUNDS_EXCEEDED,
     "The thread attempted to access an array element that is out of bounds, and the underlying hardware "
     "supports bounds checking. "},
    {EXCEPTION_FLT_DENORMAL_OPERAND,
     "One of the operands in a floating-point operation is denormal. A denormal value is one that is too small "
     "to represent as a standard floating-point value. "},
    {EXCEPTION_FLT_DIVIDE_BY_ZERO,
     "The thread attempted to divide a floating-point value by a floating-point divisor of zero. "},
    {EXCEPTION_FLT_INEXACT_RESULT,
     "The result of a floating-point operation cannot be represented exactly as a decimal fraction. "},
    {EXCEPTION_FLT_INVALID_OPERATION,
     "This exception represents any floating-point exception not included in this list. "},
    {EXCEPTION_FLT_OVERFLOW,
     "The exponent of a floating-point operation is greater than the magnitude allowed by the corresponding "
     "type. "},
    {EXCEPTION_FLT_STACK_CHECK, "The stack overflowed or underflowed as the result of a floating-point operation. "},
    {EXCEPTION_FLT_UNDERFLOW,
     "The exponent of a floating-point operation is less than the magnitude allowed by the corresponding type. "},
    {EXCEPTION_INT_DIVIDE_BY_ZERO, "The thread attempted to divide an integer value by an integer divisor of zero. "},
    {EXCEPTION_INT_OVERFLOW,
     "The result of an integer operation caused a carry out of the most significant bit of the result. "},
    {EXCEPTION_PRIV_INSTRUCTION,
     "The thread attempted to execute an instruction whose operation is not allowed in the current machine "
     "mode. "},
};

// At least eight digits, and all digits of an address of 64 bits.
#define FAULT_ADDRESS "0x%08" PRIXPTR
#define AT_ADDRESS "SE exception at address " FAULT_ADDRESS ": "

// Twice the length of the longest text.
using Buffer = std::array<char, 512>;

const char* TextOf(std::uint32_t code)
{
    for (const Row& row : Rows) {
        if (row.Code == code)
            return row.Text;
    }
    return nullptr;
}

void Format(std::uint32_t code, const EXCEPTION_RECORD& record, Buffer& buffer)
{
    const auto address = reinterpret_cast<std::uintptr_t>(record.ExceptionAddress);
    if (code == EXCEPTION_ACCESS_VIOLATION) {
        // A jump counts as a write here: the text has two forms only.
        const char* const access = record.ExceptionInformation[0] == 0 ? "read from" : "write to";
        const std::uintptr_t data = record.ExceptionInformation[1];
        std::snprintf(buffer.data(), buffer.size(),
                      AT_ADDRESS "The thread attempted to %s a virtual address at " FAULT_ADDRESS
                                 " for which it does not have the appropriate access. ",
                      address, access, data);
    } else if (const char* const text = TextOf(code)) {
        std::snprintf(buffer.data(), buffer.size(), AT_ADDRESS "%s", address, text);
    } else {
        std::snprintf(buffer.data(), buffer.size(), AT_ADDRESS "Code: 0x%08" PRIX32, address, code);
    }
}

}  // namespace

std::string describeStructuredException(unsigned int code, EXCEPTION_POINTERS* info)
{
    std::string text;
    // A failure must not replace the fault: its own text becomes the description.
    try {
        Buffer buffer{};
        Format(code, *info->ExceptionRecord, buffer);
        text = buffer.data();
    } catch (const std::exception& failure) {
        text = std::string("(Error extracting exception information: std::ex - ") + failure.what() + ")";
    } catch (...) {
        text = "(Error extracting exception information.)";
    }
    return text;
}
