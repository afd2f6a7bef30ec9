// A file as a source of bytes.
#pragma once

#include "base/descriptor.h"
#include "resources/byte_source.h"
#include "system.h"

#include <array>

namespace layer {

/// Reads as much of a file as is looked at. Two windows, as a reader goes to and fro between two tables.
class FileSource final : public ByteSource {
public:
    /// Opens a file by its path in UTF-8. Waits for nobody, whatever the file is.
    explicit FileSource(const char* path);

    /// The system error of the opening or of a read that failed; 0 if there was none.
    DWORD error() const { return Error; }

    Bytes View(std::uint64_t at, std::size_t count) override;
    std::size_t Copy(std::uint64_t at, std::byte* to, std::size_t count) override;

private:
    struct Window {
        std::uint64_t Start = 0;
        std::size_t Size = 0;
        std::byte Content[MostInView];  // of which the first Size bytes are set

        bool Holds(std::uint64_t at, std::size_t count) const;
    };

    /// Reads on until the least that is wanted is there, or the file ends. @return how many bytes there are.
    std::size_t Read(std::uint64_t at, std::byte* to, std::size_t least, std::size_t most);

    const Descriptor File;
    DWORD Error = ERROR_SUCCESS;
    std::array<Window, 2> Windows;
    std::size_t Latest = 0;
};

}  // namespace layer
