// The bytes of a log, from a file or from standard input.
#pragma once

#include "platform/file.h"
#include "records/record_reader.h"

#include <cstdint>
#include <limits>
#include <memory>

namespace tool {

/// A part of a file, from front to back.
class FilePart : public records::ByteSource {
public:
    explicit FilePart(records::RandomSource& file, std::uint64_t begin = 0,
                      std::uint64_t end = std::numeric_limits<std::uint64_t>::max())
        : File(file), Place(begin), End(end)
    {
    }

    std::size_t Read(void* buffer, std::size_t bytes) override
    {
        const std::uint64_t left = End - Place;
        const std::size_t count = File.ReadAt(Place, buffer, left < bytes ? static_cast<std::size_t>(left) : bytes);
        Place += count;
        return count;
    }

    /// Goes on at another place.
    void Seek(std::uint64_t place) { Place = place; }

private:
    records::RandomSource& File;
    std::uint64_t Place;
    const std::uint64_t End;
};

/// Standard input. A short read is continued, so that only the end of the input ends the log.
class InputSource : public records::ByteSource {
public:
    std::size_t Read(void* buffer, std::size_t bytes) override
    {
        std::size_t done = 0;
        while (done < bytes) {
            const std::size_t count = platform::ReadInput(static_cast<char*>(buffer) + done, bytes - done);
            if (count == 0)
                break;
            done += count;
        }
        return done;
    }
};

}  // namespace tool
