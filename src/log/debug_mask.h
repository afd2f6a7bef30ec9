// The debug mask: 64 bits that decide which debug records are written.
#pragma once

#include "tessmaru/platform.h"

#include <bitset>
#include <string>

namespace logging {

using Mask = std::bitset<64>;

/// Sets the bits that a text of "0" and "1" turns on. Bit 0 is the last of its first 64 characters; the rest does not
/// count, whatever it is.
/// @throws std::invalid_argument for any other character; the bits to its right are set then.
void ReadMask(const std::string& text, Mask& mask);

/// @throws std::out_of_range
[[noreturn]] void RejectBit();

/// Whether a bit is on; false for a log without a mask. Inline, as it comes before every debug record.
/// @throws std::out_of_range for a bit below 0 or above 63.
inline bool IsOn(const Mask* mask, LONG bit)
{
    if (mask == nullptr)
        return false;
    // As an unsigned number a negative one is too large as well.
    const auto position = static_cast<ULONG>(bit);
    if (position >= mask->size())
        RejectBit();
    return (*mask)[position];
}

}  // namespace logging
