// Compiled resource files (.res): entries of a header and data behind each other.
#pragma once

#include "resources/byte_source.h"
#include "system.h"

#include <optional>

namespace layer {

/// What a program gets of a resource in several languages: US English where it is there, else the neutral form,
/// else the first. The highest rank wins, and the first of equals; none is lower than 1.
constexpr int BestLanguageRank = 3;
constexpr int LanguageRank(WORD language)
{
    constexpr WORD neutral = 0;
    constexpr WORD usEnglish = 0x409;
    return language == usEnglish ? BestLanguageRank : language == neutral ? 2 : 1;
}

/// Where the data of a resource with a numeric type and name stands in the source, by the rule of languages. Nothing
/// if the file, a part of the source, does not have it; a malformed file ends where it stops making sense.
std::optional<Extent> FindResource(ByteSource& source, const Extent& file, WORD type, WORD name);

/// The same for a file in memory.
std::optional<Bytes> FindResource(Bytes file, WORD type, WORD name);

/// A row of the file's string tables, as the bytes of its units; empty for a row that is not there.
Bytes FindString(Bytes file, UINT row);

}  // namespace layer
