// Little-endian numbers in byte strings, for files that tests build byte by byte.
//
//     std::string header = Word(size) + Half(version);   Pad(header, 4);
#pragma once

#include <cstddef>
#include <string>

namespace testkit {

/// A number of 16 bits.
inline std::string Half(std::size_t value)
{
    return {static_cast<char>(value), static_cast<char>(value >> 8)};
}

/// A number of 32 bits.
inline std::string Word(std::size_t value)
{
    return Half(value & 0xFFFF) + Half(value >> 16 & 0xFFFF);
}

/// Adds zeros up to the next multiple of `alignment`.
inline void Pad(std::string& bytes, std::size_t alignment)
{
    bytes.resize((bytes.size() + alignment - 1) / alignment * alignment);
}

/// Overwrites the bytes from `at` on.
inline void Put(std::string& bytes, std::size_t at, const std::string& part)
{
    bytes.replace(at, part.size(), part);
}

}  // namespace testkit
