// Fuzzes the settings store: any bytes give a store that can be queried. The same text gives the same store in each
// encoding of Unicode, and with each kind of line end.
#include "store/export_file.h"
#include "testkit/require.h"
#include "testkit/utf16.h"
#include "text/utf8.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <string>

namespace {

using layer::RegistrySnapshot;

using testkit::Require;

RegistrySnapshot Read(std::string_view file, std::size_t& droppedLines)
{
    layer::FileReport report;
    RegistrySnapshot store = layer::ReadRegistryFile(file, report);
    Require(report.Dropped.size() == std::min(report.DroppedCount, layer::FileReport::Limit));
    droppedLines = report.DroppedCount;
    return store;
}

constexpr std::string_view Utf8Mark = "\xEF\xBB\xBF";

/// Replaces each line feed by a carriage return, or the other way round.
std::string Replace(std::string text, char from, char to)
{
    std::ranges::replace(text, from, to);
    return text;
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
    const std::string file(reinterpret_cast<const char*>(data), size);
    std::size_t dropped = 0;
    Values(Read(file, dropped));
    if (file.starts_with(Utf8Mark) || layer::ToUtf8(layer::FromUtf8(file)) != file)
        return 0;
    const std::string marked = std::string(Utf8Mark) + file;
    const std::string values = Values(Read(marked, dropped));
    std::size_t droppedToo = 0;
    Require(Values(Read("\xFF\xFE" + testkit::EncodeUtf16(file), droppedToo)) == values);
    Require(droppedToo == dropped);
    if (file.find('\r') == std::string::npos) {
        const std::string otherEnds = Values(Read(Replace(marked, '\n', '\r'), droppedToo));
        Require(Replace(otherEnds, '\r', '\n') == Replace(values, '\r', '\n'));
        Require(droppedToo == dropped);
    }
    return 0;
}
