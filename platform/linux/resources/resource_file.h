// Reads compiled resource files (.res).
#pragma once

#include "resources/byte_source.h"
#include "system.h"

#include <optional>

namespace layer {

/// The choice among the languages of a resource: US English, else the neutral language, else the first one. The
/// language of the highest rank is chosen, and the first of equal ones; each rank is at least 1.
constexpr int BestLanguageRank = 3;
constexpr int LanguageRank(WORD language)
{
    constexpr WORD neutral = 0;
    constexpr WORD usEnglish = 0x409;
    return language == usEnglish ? BestLanguageRank : language == neutral ? 2 : 1;
}

/// Finds the data of a resource with a numeric type and name, in the language of the highest rank. A malformed file
/// ends at its first invalid entry, and any file after 65,535 entries.
/// @param file  the range of the resource file in the source
/// @return the range of the data in the source, or nothing
std::optional<Extent> FindResource(ByteSource& source, const Extent& file, WORD type, WORD name);

/// The same for a file in memory.
std::optional<Bytes> FindResource(Bytes file, WORD type, WORD name);

/// Finds a row of the file's string tables. @return the bytes of its units, without a terminator; empty if there is
/// none
Bytes FindString(Bytes file, UINT row);

}  // namespace layer
