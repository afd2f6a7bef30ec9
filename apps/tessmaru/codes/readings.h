// What a code can mean.
#pragma once

#include "codes/code_names.h"

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace tool {

/// One meaning of a code.
struct Reading {
    CodeKind Kind = CodeKind::win32;
    std::uint32_t Code = 0;
    std::string Name;         // empty: the code has no name
    std::string Description;  // empty: no text is known
};

/// A number as people write codes: decimal, also negative; hexadecimal after 0x, or with eight digits.
std::optional<std::uint32_t> ReadCode(std::string_view word);

/// All meanings of a number, the most likely first.
std::vector<Reading> ReadingsOf(std::uint32_t code);

/// The meanings of a name such as E_ACCESSDENIED, in any case.
std::vector<Reading> ReadingsOf(std::string_view name);

/// The meanings whose name or description contains the text, in any case.
std::vector<Reading> Search(std::string_view text);

}  // namespace tool
