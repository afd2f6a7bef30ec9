// Reads an export of the registry.
//
//     for (const ExportedValue& value : ReadExport(text)) ...
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace testkit {

/// A value of an export, or a key alone. Names are UTF-8.
struct ExportedValue {
    std::string Key;   // with its hive
    bool IsKey;        // there is no value
    std::string Name;  // empty: the key's own value
    std::uint32_t Type;
    std::string Data;  // as the registry keeps it
};

/// The keys and values of an export in UTF-8, in their order.
/// @throws std::runtime_error for a value of unknown form.
std::vector<ExportedValue> ReadExport(std::string_view text);

}  // namespace testkit
