// A source that reads the bytes of a file as they are needed.
#pragma once

#include "base/descriptor.h"
#include "resources/byte_source.h"
#include "system.h"

#include <array>
#include <cstddef>
#include <cstdint>

namespace layer {

/// Reads a file through two windows, since a reader of a module alternates between two tables, such as section headers
/// and section names.
class FileSource final : public ByteSource {
public:
    /// Opens a file by its path in UTF-8. Does not block, even if the file is a named pipe.
    explicit FileSource(const char* path);

    /// The system error of opening the file or of a failed read; 0 if there was none.
    DWORD error() const { return Error; }

    Bytes View(std::uint64_t at, std::size_t count) override;
    std::size_t Copy(std::uint64_t at, std::byte* to, std::size_t count) override;

private:
    struct Window {
        std::uint64_t Start = 0;
        std::size_t Size = 0;
        std::byte Content[MaxViewBytes];  // the first Size bytes are valid

        bool Contains(std::uint64_t at, std::size_t count) const;
    };

    /// Reads until at least `least` bytes have been read or the file ends. @return the number of bytes read
    std::size_t Read(std::uint64_t at, std::byte* to, std::size_t least, std::size_t most);

    const Descriptor File;
    DWORD Error = ERROR_SUCCESS;
    std::array<Window, 2> Windows;
    std::size_t Latest = 0;
};

}  // namespace layer
