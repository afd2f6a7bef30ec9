// Finds records near the end of a log without reading the log from its start.
#pragma once

#include <cstddef>
#include <cstdint>

namespace records {

/// A file that can be read at any place.
class RandomSource {
public:
    virtual ~RandomSource() = default;

    virtual std::uint64_t Size() = 0;

    /// Reads up to `bytes` bytes from `offset` on. @return how many; fewer only at the end
    virtual std::size_t ReadAt(std::uint64_t offset, void* buffer, std::size_t bytes) = 0;
};

/// The offset of the first record that starts at `offset` or after it; `limit` if there is none before it.
std::uint64_t FindRecordStart(RandomSource& source, std::uint64_t offset, std::uint64_t limit);

}  // namespace records
