// Symbolic names of error codes. Constant data: nothing is built at run time, and no look-up needs memory.
#pragma once

#include <cstdint>
#include <string_view>

/// The name of a whole 32-bit HRESULT, such as "E_FAIL"; empty if the table has none.
std::string_view HResultName(std::uint32_t code);

/// The name of a system error by the low word of its code, such as "ERROR_FILE_NOT_FOUND"; empty if the table has none.
std::string_view Win32ErrorName(std::uint32_t lowWord);
