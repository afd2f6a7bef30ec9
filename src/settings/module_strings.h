// Rows of the library's own string table.
#pragma once

#include "tessmaru/text.h"

constexpr unsigned int VersionRow = 270;
constexpr unsigned int LanguageRow = 271;

/// The row with the inserts put in for its `%1`-style marks; empty if there is no such row. The arguments have
/// to be those that the row asks for.
utility::wstring genStringFromOwnModule(unsigned int row, ...);
