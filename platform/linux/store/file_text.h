// Decodes the bytes of an export to 16-bit units.
#pragma once

#include "text/page_decoder.h"
#include "text/text.h"

#include <cstdint>
#include <memory>
#include <optional>
#include <string_view>
#include <vector>

namespace layer {

/// A file as 16-bit units. Bytes that are not text in its encoding become one replacement character each, so that they
/// lie inside the line that contains them.
struct FileText {
    explicit FileText(std::size_t capacity) : Buffer(std::make_unique_for_overwrite<WCHAR[]>(capacity)) {}

    TextView all() const { return {Buffer.get(), Count}; }
    bool HasMalformedBytes(std::size_t from, std::size_t to) const;
    /// Puts a replacement character for malformed bytes.
    void PutMalformed();

    std::unique_ptr<WCHAR[]> Buffer;
    std::size_t Count = 0;

private:
    std::vector<std::uint32_t> MalformedOffsets;  // the first one of each line only
    std::size_t Searched = 0;                     // the units before this have been searched for line ends
};

/// Decodes narrow text in one code page.
class NarrowDecoder {
public:
    /// @param codePage a page that the machine cannot convert counts as UTF-8
    explicit NarrowDecoder(UINT codePage);

    /// Decodes a whole file.
    /// @throws std::bad_alloc
    FileText Decode(std::string_view bytes);

private:
    std::optional<PageDecoder> Page;  // none for UTF-8
};

/// Whether a file begins with a byte-order mark.
bool HasMark(std::string_view file);

/// Decodes a file by its byte-order mark; without one it is UTF-8.
/// @throws std::bad_alloc
FileText DecodeByMark(std::string_view file);

}  // namespace layer
