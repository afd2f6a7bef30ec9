// Rows of the library's own string table, which src/resources/tessmarU.rc defines.
#pragma once

#include "tessmaru/text.h"

constexpr unsigned int VersionRow = 270;
constexpr unsigned int LanguageRow = 271;

/// A row with the arguments in place of its `%1`-style marks; empty if there is no such row. Number and types of the
/// arguments must be those of the marks.
utility::wstring genStringFromOwnModule(unsigned int row, ...);
