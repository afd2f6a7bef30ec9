// Reads a file through two windows, each filled again when the bytes that are wanted lie outside both.
#include "resources/file_source.h"

#include "base/last_error.h"

#include <cerrno>
#include <fcntl.h>
#include <limits>
#include <unistd.h>

namespace layer {

FileSource::FileSource(const char* path) : File(open(path, O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY))
{
    if (!File)
        Error = ErrorFromErrno(errno);
}

bool FileSource::Window::Contains(std::uint64_t at, std::size_t count) const
{
    return at >= Start && at - Start <= Size && count <= Size - (at - Start);
}

Bytes FileSource::View(std::uint64_t at, std::size_t count)
{
    if (count > MaxViewBytes)
        return {};
    if (!Windows[Latest].Contains(at, count)) {
        // The window that was used last keeps its content: the reader is likely to return to it.
        Latest = 1 - Latest;
        Window& window = Windows[Latest];
        if (!window.Contains(at, count)) {
            window.Start = at;
            window.Size = Read(at, window.Content, count, MaxViewBytes);
            if (window.Size < count)
                return {};
        }
    }
    const Window& window = Windows[Latest];
    return {window.Content + (at - window.Start), count};
}

std::size_t FileSource::Copy(std::uint64_t at, std::byte* to, std::size_t count)
{
    return Read(at, to, count, count);
}

std::size_t FileSource::Read(std::uint64_t at, std::byte* to, std::size_t least, std::size_t most)
{
    // The offset comes from the file. One that off_t cannot hold lies beyond the end of any file.
    if (!File || at > static_cast<std::uint64_t>(std::numeric_limits<off_t>::max()) - most)
        return 0;
    std::size_t done = 0;
    while (done < least) {
        const ssize_t got = pread(File.get(), to + done, most - done, static_cast<off_t>(at + done));
        if (got < 0 && errno == EINTR)
            continue;
        if (got < 0)
            Error = ErrorFromErrno(errno);
        if (got <= 0)
            break;
        done += static_cast<std::size_t>(got);
    }
    return done;
}

}  // namespace layer
