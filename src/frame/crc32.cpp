// The CRC-32 of a few bytes. The table is constant data, so no start-up code belongs to it.
#include "frame/crc32.h"

#include <array>

namespace {

/// The checksum of each single byte.
constexpr auto Crc32Table = [] {
    constexpr std::uint32_t polynomial = 0xEDB88320;
    std::array<std::uint32_t, 256> table{};
    for (std::uint32_t i = 0; i < table.size(); ++i) {
        std::uint32_t entry = i;
        for (int bit = 0; bit < 8; ++bit)
            entry = (entry & 1) != 0 ? entry >> 1 ^ polynomial : entry >> 1;
        table[i] = entry;
    }
    return table;
}();

}  // namespace

std::uint32_t frame::calcCrc32(const unsigned char* bytes, std::size_t count)
{
    std::uint32_t state = 0xFFFFFFFF;
    for (std::size_t i = 0; i < count; ++i)
        state = Crc32Table[(state ^ bytes[i]) & 0xFF] ^ state >> 8;
    return ~state;
}
