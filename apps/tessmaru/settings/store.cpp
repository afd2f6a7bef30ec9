// The content of a settings store.
#include "settings/store.h"

#include "text/ascii.h"
#include "text/wide.h"

#include <algorithm>

namespace tool {
namespace {

constexpr std::size_t MostTextBytes = 2048;  // that the library reads

}  // namespace

const StoreValue* Store::Find(std::string_view key, std::string_view name) const
{
    const auto value = std::find_if(Values.begin(), Values.end(), [&](const StoreValue& each) {
        return EqualIgnoringCase(each.Name, name) && EqualIgnoringCase(each.Key, key);
    });
    return value == Values.end() ? nullptr : &*value;
}

std::string Store::PlaceOf(std::size_t line) const
{
    return line == 0 ? Location : Location + ":" + std::to_string(line);
}

std::string TextOf(const StoreValue& value)
{
    if (value.Data.size() > MostTextBytes)
        return {};
    utility::wstring text;
    for (std::size_t i = 0; i + 1 < value.Data.size(); i += 2) {
        const auto low = static_cast<unsigned char>(value.Data[i]);
        const auto high = static_cast<unsigned char>(value.Data[i + 1]);
        if (low == 0 && high == 0)
            break;
        text += static_cast<unsigned short>(low | high << 8);
    }
    return ToUtf8(text);
}

std::uint32_t NumberOf(const StoreValue& value)
{
    std::uint32_t number = 0;
    if (value.Data.size() > sizeof number)
        return 0;
    for (std::size_t i = value.Data.size(); i-- > 0;)
        number = number << 8 | static_cast<unsigned char>(value.Data[i]);
    return number;
}

}  // namespace tool
