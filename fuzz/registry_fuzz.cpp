// Fuzzes the settings store: any bytes give a store that can be queried, and an ASCII file gives the same store as
// UTF-16.
#include "store/export_file.h"
#include "testkit/require.h"
#include "testkit/utf16.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <string>

namespace {

using layer::RegistrySnapshot;

using testkit::Require;

RegistrySnapshot Read(std::string_view file, std::size_t& droppedLines)
{
    layer::DroppedLines dropped;
    RegistrySnapshot store = layer::ReadRegistryFile(file, dropped);
    Require(dropped.First.size() == std::min(dropped.Count, layer::DroppedLines::Limit));
    droppedLines = dropped.Count;
    return store;
}

constexpr WCHAR Paths[][4] = {{'a', 0}, {'A', '\\', 'b', 0}, {'b', 0}, {'\\', 0}, {0}};
constexpr WCHAR Names[][2] = {{0}, {'n', 0}, {'H', 0}};

/// The values of the store under a few names, as one text.
std::string Values(const RegistrySnapshot& store)
{
    std::string all;
    const auto hive = store.PathOf(*RegistrySnapshot::FindHive(HKEY_LOCAL_MACHINE));
    for (const layer::TextView path : Paths) {
        const auto key = store.FindKey(hive, path);
        all += key ? 'K' : '-';
        if (!key)
            continue;
        Require(store.FindKey(store.PathOf(*key), {}) == key);
        for (const layer::TextView name : Names) {
            const auto value = store.FindValue(*key, name);
            all += value ? std::to_string(value->Type) + ":" : "-";
            if (value)
                all.append(value->Data.begin(), value->Data.end());
        }
    }
    return all;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    const std::string_view file(reinterpret_cast<const char*>(data), size);
    std::size_t dropped = 0;
    const std::string values = Values(Read(file, dropped));
    if (std::all_of(data, data + size, [](std::uint8_t byte) { return byte < 0x80; })) {
        std::size_t droppedInUtf16 = 0;
        Require(Values(Read("\xFF\xFE" + testkit::EncodeUtf16(file), droppedInUtf16)) == values);
        Require(droppedInUtf16 == dropped);
    }
    return 0;
}
