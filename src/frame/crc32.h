// The published CRC-32 (IEEE 802.3, reflected).
#pragma once

#include <cstddef>
#include <cstdint>

namespace frame {

/// The checksum of `count` bytes; 0 for no bytes.
std::uint32_t calcCrc32(const unsigned char* bytes, std::size_t count);

}  // namespace frame
