// Reads the file of a settings store.
#include "cli/session.h"
#include "platform/file.h"
#include "settings/store.h"
#include "settings/store_parser.h"

namespace tool {

Store ReadStoreFile(const std::string& path)
{
    constexpr std::uint64_t most = 32 * 1024 * 1024;  // the library's own limit
    const auto file = platform::InputFile::Open(path);
    const std::uint64_t size = file->Size();
    if (size > most)
        throw Failure(Exit::unreadable, path + " is larger than 32 MiB: the library does not read it");
    std::string bytes(static_cast<std::size_t>(size), '\0');
    bytes.resize(file->ReadAt(0, bytes.data(), bytes.size()));
    Store store = ParseStore(bytes);
    store.Location = path;
    return store;
}

}  // namespace tool
