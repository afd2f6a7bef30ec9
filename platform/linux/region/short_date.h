// How the machine writes a short date.
#pragma once

#include "system.h"

#include <array>
#include <string_view>

namespace layer {

/// A date picture with its terminator. The platform's own limit is 80 units.
using DatePicture = std::array<WCHAR, 81>;

/// The machine's picture: that of the settings store, else that of the machine's locale, else yyyy-MM-dd.
/// Read once per process.
DatePicture ShortDatePicture();

/// A `strftime` picture of a date, in UTF-8, as a date picture. False if it holds what the latter cannot say.
bool TranslateDatePicture(const char* strftimePicture, DatePicture& picture);

/// The locale for times that a file of `NAME=value` lines sets: its last LC_TIME, else its last LANG, else "".
std::string_view TimeLocaleOf(std::string_view file);

}  // namespace layer
