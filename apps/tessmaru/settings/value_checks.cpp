// Finds what is wrong with the value of one setting: its type, its size, and what the library makes of it.
#include "settings/value_checks.h"

#include "platform/disk.h"
#include "text/ascii.h"
#include "text/wide.h"

#include <fmt/format.h>

#include <algorithm>
#include <initializer_list>

namespace tool {
namespace {

constexpr std::size_t MostTextBytes = 2048;
constexpr std::size_t MostPathUnits = 512;
constexpr std::size_t MostMaskBits = 64;
constexpr std::uint32_t MostPort = 65535;

bool IsOneOf(std::string_view text, std::initializer_list<std::string_view> words)
{
    return std::any_of(words.begin(), words.end(),
                       [&](std::string_view each) { return EqualIgnoringCase(text, each); });
}

std::string NameOfType(std::uint32_t type)
{
    switch (type) {
        case TextType: return "a text";
        case ExpandableTextType: return "a text with variables";
        case 3: return "bytes";
        case NumberType: return "a number (dword)";
        case TextListType: return "a list of texts";
        default: return fmt::format("of type {}", type);
    }
}

/// The library uses the bytes of a value whatever its type is.
std::string TypeFault(const Setting& setting, const StoreValue& value)
{
    const std::string name = DisplayName(setting);
    if (setting.Kind == SettingKind::number) {
        return value.Type == NumberType ? std::string()
                                        : fmt::format("{} is {}: it reads as the number {}. Write a dword", name,
                                                      NameOfType(value.Type), ShownValue(setting, &value));
    }
    if (value.Type == ExpandableTextType) {
        return TextOf(value).find('%') == std::string::npos
                   ? std::string()
                   : fmt::format("{} is a text with variables: they are not replaced", name);
    }
    return value.Type == TextType
               ? std::string()
               : fmt::format("{} is {}: it reads as the text \"{}\". Write a text in quotation marks", name,
                             NameOfType(value.Type), TextOf(value));
}

std::string NumberFault(const Setting& setting, const StoreValue& value)
{
    const std::uint32_t number = NumberOf(value);
    if (setting.Name == "PortNumber" && number > MostPort)
        return fmt::format("PortNumber is {}: a port is at most {}", number, MostPort);
    const std::string shown = ShownValue(setting, &value);
    return shown.starts_with('-') ? fmt::format("{} is {}: it is negative", setting.Name, shown) : std::string();
}

std::string FlagFault(const Setting& setting, const std::string& text)
{
    if (setting.Name == "EncryptionEnabled" && !IsOneOf(text, {"n", "y", "yes", "true", "on", "1", ""}))
        return fmt::format("EncryptionEnabled is \"{}\": the encryption stays on. Only \"n\" switches it off", text);
    if (setting.Name == "ValidationDisabled" && !IsOneOf(text, {"y", "n", "no", "false", "off", "0", ""}))
        return fmt::format("ValidationDisabled is \"{}\": the validation stays on. Only \"Y\" switches it off", text);
    return {};
}

std::string MaskFault(const std::string& text)
{
    if (text.find_first_not_of("01") < MostMaskBits)
        return fmt::format("DebugMask is \"{}\": it may have only 0 and 1. All bits are off", text);
    if (text.size() > MostMaskBits)
        return fmt::format("DebugMask has {} characters: only the first {} count", text.size(), MostMaskBits);
    return {};
}

std::string PathFault(const std::string& text)
{
    if (text.empty())
        return "FilePath is empty: no process can log";
    const std::size_t units = ToUtf16(text).size();
    if (units > MostPathUnits)
        return fmt::format("FilePath has {} characters: no process can log with more than {}", units, MostPathUnits);
    if (const std::string fault = platform::PathFault(text); !fault.empty())
        return fmt::format("FilePath is \"{}\": {}", text, fault);
    return {};
}

std::string TextFault(const Setting& setting, const std::string& text)
{
    if (setting.Name == "FilePath")
        return PathFault(text);
    if (setting.Name == "DebugMask")
        return MaskFault(text);
    if (setting.Name == "CancelRequestMethod" && !IsOneOf(text, {"async", "sync", ""}))
        return fmt::format("CancelRequestMethod is \"{}\": it is neither async nor sync", text);
    if (setting.Name == "ACP" && (text.empty() || text.find_first_not_of("0123456789") != std::string::npos))
        return fmt::format("ACP is \"{}\": a code page is a decimal number", text);
    return {};
}

std::string SizeFault(const Setting& setting, const StoreValue& value)
{
    const std::size_t most = setting.Kind == SettingKind::number ? sizeof(std::uint32_t) : MostTextBytes;
    if (value.Data.size() <= most)
        return {};
    return fmt::format("{} has {} bytes: the library reads at most {}, so the setting counts as missing",
                       DisplayName(setting), value.Data.size(), most);
}

}  // namespace

std::string FaultOf(const Setting& setting, const StoreValue& value)
{
    if (std::string fault = TypeFault(setting, value); !fault.empty())
        return fault;
    if (std::string fault = SizeFault(setting, value); !fault.empty())
        return fault;
    switch (setting.Kind) {
        case SettingKind::number: return NumberFault(setting, value);
        case SettingKind::flag: return FlagFault(setting, TextOf(value));
        default: return TextFault(setting, TextOf(value));
    }
}

}  // namespace tool
