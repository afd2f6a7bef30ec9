// The content of a settings store, with the lines in which it is written.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace tool {

/// The types of values that the suite uses.
enum ValueType : std::uint32_t { TextType = 1, ExpandableTextType = 2, NumberType = 4, TextListType = 7 };

struct StoreKey {
    std::string Path;  // "HKEY_LOCAL_MACHINE\SOFTWARE\..."
    std::size_t Line;
};

struct StoreValue {
    std::string Key;
    std::string Name;  // empty: the key's unnamed value
    std::uint32_t Type;
    std::string Data;  // the bytes; texts have 16-bit units, low byte first
    std::size_t Line;  // 0 if the store has no lines
};

/// Something wrong in a line of a store.
struct StoreFault {
    std::size_t Line;
    std::string Text;
};

struct Store {
    std::string Location;  // the path of the file, or "registry"
    std::vector<StoreKey> Keys;
    std::vector<StoreValue> Values;  // those that count
    std::vector<StoreFault> Faults;  // lines that the library drops, or that have no effect

    /// @return null if there is none. The case of the letters A to Z is ignored.
    const StoreValue* Find(std::string_view key, std::string_view name) const;

    /// "settings.reg:14", or the location alone if the store has no lines.
    std::string PlaceOf(std::size_t line) const;
};

/// A value as the library reads it, whatever its type: empty or 0 if it is too long.
std::string TextOf(const StoreValue& value);
std::uint32_t NumberOf(const StoreValue& value);

/// Reads a store in the export format. @throws Failure with Exit::unreadable
Store ReadStoreFile(const std::string& path);

}  // namespace tool
