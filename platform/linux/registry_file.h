// The settings store as it is read: the content of an export file, in memory, never changed once it is made.
#pragma once

#include "layer.h"

#include <array>
#include <span>
#include <unordered_map>
#include <vector>

namespace layer {

/// Names compare without case.
struct FoldHash {
    using is_transparent = void;
    std::size_t operator()(TextView text) const noexcept;
};
struct FoldEqual {
    using is_transparent = void;
    bool operator()(TextView left, TextView right) const noexcept;
};
template <class Value>
using FoldMap = std::unordered_map<Text, Value, FoldHash, FoldEqual>;

struct RegistryValue {
    DWORD Type = REG_NONE;
    std::vector<BYTE> Data;
};

/// The values of a key by their names; the unnamed one has the empty name.
using RegistryValues = FoldMap<RegistryValue>;

/// A key: its path below its predefined key, and its values.
using RegistryKey = FoldMap<RegistryValues>::value_type;

class RegistryFile {
public:
    /// Takes in the bytes of an export: UTF-16 with its byte-order mark, or UTF-8. What is malformed is left
    /// out and told on the debug output.
    /// @throws std::bad_alloc
    explicit RegistryFile(std::span<const BYTE> file);

    /// The key of this path below a predefined key, or null. One backslash at the end of the path is nothing.
    const RegistryKey* Find(HKEY hive, TextView path) const;

private:
    friend class RegistryParser;

    static constexpr std::size_t HiveCount = 4;
    std::array<FoldMap<RegistryValues>, HiveCount> Hives;
};

/// Whether this is one of the keys that are always open.
bool IsPredefined(HKEY key);

}  // namespace layer
