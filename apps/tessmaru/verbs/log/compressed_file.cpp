// Compression of a file. The compressed file appears under its name only when it is complete.
#include "verbs/log/compressed_file.h"

#include "cli/session.h"
#include "text/paths.h"

#include <zlib.h>

#include <filesystem>
#include <fstream>
#include <new>
#include <vector>

namespace tool {
namespace {

constexpr std::size_t BlockBytes = 64 * 1024;

/// Writes what is given to it in the form of gzip.
class GzipWriter {
public:
    explicit GzipWriter(std::ostream& target) : Target(target)
    {
        constexpr int gzipForm = 16;
        constexpr int memoryLevel = 8;
        if (deflateInit2(&Stream, Z_DEFAULT_COMPRESSION, Z_DEFLATED, MAX_WBITS + gzipForm, memoryLevel,
                         Z_DEFAULT_STRATEGY) != Z_OK)
            throw std::bad_alloc();
    }
    GzipWriter(const GzipWriter&) = delete;
    GzipWriter& operator=(const GzipWriter&) = delete;
    ~GzipWriter() { deflateEnd(&Stream); }

    /// @param flush Z_NO_FLUSH, or Z_FINISH for the last part
    void Write(char* data, std::size_t bytes, int flush)
    {
        Stream.next_in = reinterpret_cast<Bytef*>(data);
        Stream.avail_in = static_cast<uInt>(bytes);
        do {
            Stream.next_out = reinterpret_cast<Bytef*>(Block.data());
            Stream.avail_out = static_cast<uInt>(Block.size());
            deflate(&Stream, flush);
            Target.write(Block.data(), static_cast<std::streamsize>(Block.size() - Stream.avail_out));
        } while (Stream.avail_out == 0);
    }

private:
    std::ostream& Target;
    z_stream Stream{};
    std::vector<char> Block = std::vector<char>(BlockBytes);
};

/// @return whether the whole file was written
bool CopyCompressed(const std::filesystem::path& from, const std::filesystem::path& to)
{
    std::ifstream source(from, std::ios::binary);
    std::ofstream target(to, std::ios::binary);
    GzipWriter writer(target);
    std::vector<char> block(BlockBytes);
    while (source && target) {
        source.read(block.data(), BlockBytes);
        writer.Write(block.data(), static_cast<std::size_t>(source.gcount()), source ? Z_NO_FLUSH : Z_FINISH);
    }
    target.close();
    return source.eof() && target;
}

}  // namespace

void Compress(const std::string& path)
{
    namespace fs = std::filesystem;
    const fs::path from = PathOf(path);
    const fs::path fresh = PathOf(path + ".gz.new");
    std::error_code failure;
    const bool isWritten = CopyCompressed(from, fresh);
    if (isWritten)
        fs::permissions(fresh, fs::status(from).permissions(), failure);
    if (isWritten && !failure)
        fs::rename(fresh, PathOf(path + ".gz"), failure);
    if (!isWritten || failure) {
        fs::remove(fresh, failure);
        throw Failure(Exit::unreadable, "cannot compress " + path + "; it is kept as it is");
    }
    fs::remove(from);
}

}  // namespace tool
