// Damages files, as a library with a fault would.
#include "soak/damage.h"

#include "testkit/utf16.h"

#include <fstream>

namespace soak {
namespace {

void Append(const std::filesystem::path& path, const std::string& bytes)
{
    std::ofstream(path, std::ios::binary | std::ios::app) << bytes;
}

void Overwrite(const std::filesystem::path& path, std::uintmax_t at)
{
    std::fstream file(path, std::ios::binary | std::ios::in | std::ios::out);
    file.seekp(static_cast<std::streamoff>(at / 2 * 2));
    file << "overwritten!";
}

}  // namespace

void Damage(const std::string& fault, const std::filesystem::path& log, const std::filesystem::path& old)
{
    const std::uintmax_t size = std::filesystem::exists(log) ? std::filesystem::file_size(log) : 0;
    if (fault == "overwrite")
        Overwrite(log, size / 2);
    else if (fault == "truncate")
        std::filesystem::resize_file(log, size / 4 * 2);
    else if (fault == "zeros")
        std::filesystem::resize_file(log, size + 100);
    else if (fault == "print")
        Append(log, "printed ~stray~\n");
    else if (fault == "stamp")
        Append(log, testkit::EncodeUtf16(
                        "2000-01-01 00:00:00.002 | 00000001 | 00000001 | INFO |          Log | Log opened\r\n"
                        "2000-01-01 00:00:00.001 | 00000001 | 00000001 | INFO |          Log | Log opened\r\n"));
    else if (fault == "old")
        Overwrite(old, 0);
}

}  // namespace soak
