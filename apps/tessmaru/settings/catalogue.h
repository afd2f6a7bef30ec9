// All settings: the one table from which the verbs list, check and write them.
#pragma once

#include "settings/store.h"

#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace tool {

enum class SettingKind { number, text, flag };

struct Setting {
    std::string_view Key;   // below the key of the release, or from HKEY_ on
    std::string_view Name;  // empty: the key's unnamed value
    SettingKind Kind;
    std::string_view Default;  // what the library reads if the value is missing
    std::string_view Meaning;
};

std::span<const Setting> Settings();

/// "number", "text" or "flag".
std::string_view NameOf(SettingKind kind);

/// The key of the release that this library reads, from HKEY_ on.
std::string ReleaseKey();

/// The key of a setting, from HKEY_ on.
std::string KeyOf(const Setting& setting);

/// What a person calls a setting: "Tag Server\MaxRequests", and "Tag Server\Databases" for an unnamed value.
std::string DisplayName(const Setting& setting);

/// The setting of this name, with or without its key; the case of letters is ignored.
/// @throws Failure with Exit::usage if there is none, with the nearest name
const Setting& FindSetting(const std::string& name);

/// A value as text for a person: numbers are decimal.
std::string ShownValue(const Setting& setting, const StoreValue* value);

/// The value of the machine, read through the library where it has a call for it.
std::string CurrentValue(const Setting& setting, const Store& store);

}  // namespace tool
