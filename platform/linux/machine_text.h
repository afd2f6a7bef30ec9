// Properties of the machine that stand in the settings store and are read once per process.
#pragma once

#include "layer.h"

#include <array>
#include <span>

namespace layer {

/// `failed`: it could not be found out, for want of memory for instance, and the next attempt may.
enum class Lookup { found, missing, failed };

/// Reads a text of the store into `text`, with a terminator; one that does not fit counts as missing.
/// Leaves the last error alone.
Lookup ReadMachineText(HKEY hive, LPCWSTR key, LPCWSTR value, std::span<WCHAR> text);

/// A literal's units, terminator included.
template <std::size_t N>
constexpr std::array<WCHAR, N> Literal(const char16_t (&text)[N])
{
    std::array<WCHAR, N> units{};
    for (std::size_t i = 0; i < N; ++i)
        units[i] = static_cast<WCHAR>(text[i]);
    return units;
}

}  // namespace layer
