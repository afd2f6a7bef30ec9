// The text of a settings store: an export of the registry in UTF-8.
//
//     store.Set(Section(SuiteKey + "UDP", "\"PortNumber\"=dword:00000007"));
#pragma once

#include <string>
#include <string_view>

namespace testkit {

inline constexpr std::string_view ExportHeading = "Windows Registry Editor Version 5.00\r\n\r\n";

/// The key of the suite's settings, with a backslash at its end.
inline const std::string SuiteKey = "HKEY_LOCAL_MACHINE\\SOFTWARE\\Orvane Electronics Limited\\Veltrix\\4.09.00-en\\";

/// A key with the lines of its values.
std::string Section(std::string_view key, std::string_view values);

/// The line of a text value. @param name "@" is the key's own value.
std::string TextValue(std::string_view name, std::string_view text);

/// The section that names the log at `path`. @param mask the debug mask; empty: none. @param more further sections.
std::string LogSection(std::string_view path, std::string_view mask = {}, std::string_view more = {});

}  // namespace testkit
