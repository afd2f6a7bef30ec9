// The table of all settings. The library attaches no unit to a number, so the table gives none either.
#include "settings/catalogue.h"

#include "cli/nearest.h"
#include "cli/session.h"
#include "settings/values.h"
#include "tessmaru/settings.h"
#include "text/ascii.h"
#include "text/wide.h"

#include <algorithm>

namespace tool {
namespace {

constexpr std::string_view LocalMachine = "HKEY_LOCAL_MACHINE\\";
constexpr std::string_view LogKey = "\\Log\\Application";

constexpr auto Number = SettingKind::number;
constexpr auto Text = SettingKind::text;
constexpr auto Flag = SettingKind::flag;

constexpr Setting Table[] = {
    {"Tag Server", "RequestTimeout", Number, "0", "how long the tag server waits for a request"},
    {"Tag Server", "ResponseTimeout", Number, "0", "how long the tag server waits for a response"},
    {"Tag Server", "MaxRequests", Number, "0", "the most requests at one time"},
    {"Tag Server", "MaxResponses", Number, "0", "the most responses at one time"},
    {"Tag Server", "MessageResource", Text, "", "the module with the texts of messages"},
    {"Tag Server", "ValidationDisabled", Flag, "n", "y switches the validation off; any other text leaves it on"},
    {"Tag Server", "CancelRequestMethod", Text, "", "async or sync: how requests are cancelled"},
    {"Tag Server\\Databases", "", Text, "", "the file of the tag specification database"},
    {"Protocol", "ElementResponseTimeout", Number, "0", "how long the protocol waits for an element's response"},
    {"Protocol", "EncryptionEnabled", Flag, "y", "n switches the encryption off; any other text leaves it on"},
    {"UDP", "PortNumber", Number, "0", "the port, 1 to 65535"},
    {"Log\\Application", "FilePath", Text, "", "the complete path of the log, at most 512 characters"},
    {"Log\\Application", "DebugMask", Text, "", "0 and 1, at most 64, bit 0 at the right: what is traced"},
    {"Token Processing", "Disabled", Text, "", "a text for the token processing, passed on unchanged"},
    {"HKEY_USERS\\.DEFAULT\\Control Panel\\International", "sShortDate", Text, "",
     "the form of dates in the log, such as dd/MM/yyyy; without it, the machine's own"},
    {"HKEY_LOCAL_MACHINE\\SYSTEM\\CurrentControlSet\\Control\\Nls\\CodePage", "ACP", Text, "",
     "the active code page, such as 1252; without it, UTF-8"},
};

std::string Shown(const Setting& setting, std::uint32_t number)
{
    // These two are signed in the library.
    const bool isSigned = setting.Name == "RequestTimeout" || setting.Name == "ResponseTimeout";
    return isSigned ? std::to_string(static_cast<std::int32_t>(number)) : std::to_string(number);
}

}  // namespace

std::span<const Setting> Settings()
{
    return Table;
}

std::string_view NameOf(SettingKind kind)
{
    switch (kind) {
        case SettingKind::number: return "number";
        case SettingKind::flag: return "flag";
        default: return "text";
    }
}

std::string ReleaseKey()
{
    // The library knows its release, so that this table need not.
    std::string key = ToUtf8(CSettingsRegistry().getLogRegKey());
    while (key.ends_with('\\'))
        key.pop_back();
    if (key.ends_with(LogKey))
        key.resize(key.size() - LogKey.size());
    return std::string(LocalMachine) + key;
}

std::string KeyOf(const Setting& setting)
{
    return setting.Key.starts_with("HKEY_") ? std::string(setting.Key) : ReleaseKey() + "\\" + std::string(setting.Key);
}

std::string DisplayName(const Setting& setting)
{
    std::string_view key = setting.Key;
    if (key.starts_with("HKEY_"))
        key.remove_prefix(key.rfind('\\') + 1);
    return setting.Name.empty() ? std::string(key) : std::string(key) + "\\" + std::string(setting.Name);
}

const Setting& FindSetting(const std::string& name)
{
    std::string wanted = name;
    std::replace(wanted.begin(), wanted.end(), '/', '\\');
    std::vector<std::string> names;
    for (const Setting& setting : Table) {
        const std::string full = DisplayName(setting);
        const std::string last = full.substr(full.rfind('\\') + 1);
        const std::string whole = KeyOf(setting) + (setting.Name.empty() ? "" : "\\" + std::string(setting.Name));
        if (EqualIgnoringCase(wanted, full) || EqualIgnoringCase(wanted, last) || EqualIgnoringCase(wanted, whole))
            return setting;
        names.push_back(full);
        names.push_back(last);
    }
    const auto nearest = Nearest(wanted, names);
    throw Failure(Exit::usage,
                  "there is no setting \"" + name + "\"" +
                      (nearest ? "; did you mean \"" + *nearest + "\"?" : "; see: tessmaru settings list"));
}

std::string ShownValue(const Setting& setting, const StoreValue* value)
{
    if (value == nullptr)
        return std::string(setting.Default);
    return setting.Kind == SettingKind::number ? Shown(setting, NumberOf(*value)) : TextOf(*value);
}

std::string CurrentValue(const Setting& setting, const Store& store)
{
    const std::string key = KeyOf(setting);
    const StoreValue* const value = store.Find(key, setting.Name);
    if (value == nullptr || !key.starts_with(LocalMachine))
        return ShownValue(setting, value);
    const std::string path = key.substr(LocalMachine.size());
    if (setting.Kind == SettingKind::number)
        return Shown(setting, MachineNumber(path, std::string(setting.Name)));
    return MachineValue(path, std::string(setting.Name));
}

}  // namespace tool
