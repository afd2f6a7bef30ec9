// The texts of processor faults. Making one allocates nothing and may be done in a signal handler.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string_view>

namespace fault_text {

/// What a text contains of a fault.
struct Fault {
    std::uint32_t Code;
    std::uintptr_t Address;  // of the instruction
    std::uintptr_t Access;   // of an access violation: 0 for a read
    std::uintptr_t Data;     // of an access violation: the address that was accessed
};

/// Room for the longest text, almost twice over.
constexpr std::size_t MaxBytes = 512;

/// A text with a zero at its end. What does not fit is left out.
class Text {
public:
    const char* Data() const { return Bytes.data(); }
    std::size_t Size() const { return Length; }

    void Add(std::string_view part)
    {
        for (const char unit : part) {
            if (Length + 1 < Bytes.size())
                Bytes[Length++] = unit;
        }
    }

    /// Adds "0x" and at least eight digits; a larger number has all its digits.
    void AddNumber(std::uintptr_t number)
    {
        Add("0x");
        std::size_t digits = 8;
        while (digits < sizeof number * 2 && number >> (digits * 4) != 0)
            ++digits;
        while (digits-- > 0)
            Add(std::string_view("0123456789ABCDEF").substr((number >> (digits * 4)) & 15, 1));
    }

private:
    std::array<char, MaxBytes> Bytes{};
    std::size_t Length = 0;
};

struct Row {
    std::uint32_t Code;
    std::string_view Text;
};

/// The published descriptions of the codes; each ends in a blank. An access violation has a text with the address.
constexpr Row Rows[] = {
    {0x80000002,
     "The thread attempted to read or write data that is misaligned on hardware that does not provide alignment. "
     "For example, 16-bit values must be aligned on 2-byte boundaries, 32-bit values on 4-byte boundaries, "
     "and so on. "},
    {0x80000004,
     "A trace trap or other single-instruction mechanism signaled that one instruction has been executed. "},
    {0xC0000025, "The thread attempted to continue execution after a noncontinuable exception occurred. "},
    {0xC000008C,
     "The thread attempted to access an array element that is out of bounds, and the underlying hardware "
     "supports bounds checking. "},
    {0xC000008D,
     "One of the operands in a floating-point operation is denormal. A denormal value is one that is too small "
     "to represent as a standard floating-point value. "},
    {0xC000008E, "The thread attempted to divide a floating-point value by a floating-point divisor of zero. "},
    {0xC000008F, "The result of a floating-point operation cannot be represented exactly as a decimal fraction. "},
    {0xC0000090, "This exception represents any floating-point exception not included in this list. "},
    {0xC0000091,
     "The exponent of a floating-point operation is greater than the magnitude allowed by the corresponding "
     "type. "},
    {0xC0000092, "The stack overflowed or underflowed as the result of a floating-point operation. "},
    {0xC0000093,
     "The exponent of a floating-point operation is less than the magnitude allowed by the corresponding type. "},
    {0xC0000094, "The thread attempted to divide an integer value by an integer divisor of zero. "},
    {0xC0000095, "The result of an integer operation caused a carry out of the most significant bit of the result. "},
    {0xC0000096,
     "The thread attempted to execute an instruction whose operation is not allowed in the current machine "
     "mode. "},
};

constexpr std::uint32_t AccessViolation = 0xC0000005;

inline std::string_view DescriptionOf(std::uint32_t code)
{
    for (const Row& row : Rows) {
        if (row.Code == code)
            return row.Text;
    }
    return {};
}

/// Adds the text of a fault: what happened and where.
inline void Describe(const Fault& fault, Text& text)
{
    text.Add("SE exception at address ");
    text.AddNumber(fault.Address);
    text.Add(": ");
    const std::string_view description = DescriptionOf(fault.Code);
    if (fault.Code == AccessViolation) {
        // A jump counts as a write here: the text has two forms only.
        text.Add(fault.Access == 0 ? "The thread attempted to read from" : "The thread attempted to write to");
        text.Add(" a virtual address at ");
        text.AddNumber(fault.Data);
        text.Add(" for which it does not have the appropriate access. ");
    } else if (!description.empty()) {
        text.Add(description);
    } else {
        text.Add("Code: ");
        text.AddNumber(fault.Code);
    }
}

}  // namespace fault_text
