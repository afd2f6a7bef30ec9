// The debug mask: 64 bits that decide which debug records are written.
#pragma once

#include "tessmaru/platform.h"

#include <bitset>
#include <string>

namespace logging {

using Mask = std::bitset<64>;

/// Sets the bits of a text of "0" and "1". Bit 0 is the last of the first 64 characters; the rest of the text is
/// ignored.
/// @throws std::invalid_argument for any other character; the bits to its right have been set.
void ReadMask(const std::string& text, Mask& mask);

/// Out of line, to keep the test of a bit small. @throws std::out_of_range
[[noreturn]] void RejectBit();

/// Whether a bit is on; false for a log without a mask. Inline, because every debug record costs at least this.
/// @throws std::out_of_range for a bit below 0 or above 63.
inline bool IsOn(const Mask* mask, LONG bit)
{
    if (mask == nullptr)
        return false;
    // As an unsigned number, a negative bit is too large as well.
    const auto position = static_cast<ULONG>(bit);
    if (position >= mask->size())
        RejectBit();
    return (*mask)[position];
}

}  // namespace logging
