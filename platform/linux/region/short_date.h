// The format picture with which this machine writes a short date.
#pragma once

#include "system.h"

#include <array>
#include <string_view>

namespace layer {

/// A format picture of GetDateFormatW, such as "dd/MM/yyyy", filled up with zeros. Win32 limits it to 80 units.
using DatePicture = std::array<WCHAR, 81>;

/// The picture of the machine: from the settings store, else from the machine's locale, else "yyyy-MM-dd". It is read
/// once per process.
DatePicture ShortDatePicture();

/// Translates a date format of `strftime` to a date picture.
/// @param strftimeFormat in UTF-8
/// @return false if it has a conversion for which date pictures have no field, or if the result is empty or too long
bool TranslateDatePicture(const char* strftimeFormat, DatePicture& picture);

/// Finds the locale for dates and times in a file of `NAME=value` lines.
/// @return the last value of LC_TIME, else the last value of LANG, else an empty text
std::string_view TimeLocaleOf(std::string_view file);

}  // namespace layer
