// Files on Linux.
#include "platform/file.h"

#include "cli/session.h"
#include "settings/values.h"

#include <fmt/format.h>

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>

namespace tool::platform {
namespace {

class OpenFile final : public InputFile {
public:
    OpenFile(int file, std::string path) : File(file), Path(std::move(path)) {}
    OpenFile(const OpenFile&) = delete;
    OpenFile& operator=(const OpenFile&) = delete;
    ~OpenFile() override { close(File); }

    std::uint64_t Size() override { return static_cast<std::uint64_t>(Status().st_size); }

    std::size_t ReadAt(std::uint64_t offset, void* buffer, std::size_t bytes) override
    {
        char* const place = static_cast<char*>(buffer);
        std::size_t done = 0;
        while (done < bytes) {
            const ssize_t count = pread(File, place + done, bytes - done, static_cast<off_t>(offset + done));
            if (count == 0)
                break;
            if (count > 0)
                done += static_cast<std::size_t>(count);
            else if (errno != EINTR)
                Fail();
        }
        return done;
    }

    FileIdentity Identity() const override
    {
        const struct stat status = Status();
        return {status.st_dev, status.st_ino};
    }

private:
    struct stat Status() const
    {
        struct stat status {};
        if (fstat(File, &status) != 0)
            Fail();
        return status;
    }

    [[noreturn]] void Fail() const
    {
        throw Failure(Exit::unreadable, fmt::format("cannot read {}: {}", Path, std::strerror(errno)));
    }

    int File;
    std::string Path;
};

}  // namespace

std::unique_ptr<InputFile> InputFile::Open(const std::string& path)
{
    auto opened = OpenIfThere(path);
    if (opened == nullptr)
        throw Failure(Exit::unreadable, fmt::format("cannot open {}: {}", path, std::strerror(errno)));
    return opened;
}

std::unique_ptr<InputFile> InputFile::OpenIfThere(const std::string& path)
{
    // O_NONBLOCK: a named pipe must not wait for its other end.
    const int file = open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY);
    if (file < 0 && (errno == ENOENT || errno == ENOTDIR))
        return nullptr;
    if (file < 0)
        throw Failure(Exit::unreadable, fmt::format("cannot open {}: {}", path, std::strerror(errno)));
    auto opened = std::make_unique<OpenFile>(file, path);
    struct stat status {};
    if (fstat(file, &status) != 0 || !S_ISREG(status.st_mode))
        throw Failure(Exit::unreadable, fmt::format("{} is no regular file", path));
    return opened;
}

bool IsSameFile(const InputFile& file, const std::string& path)
{
    struct stat status {};
    return stat(path.c_str(), &status) == 0 && file.Identity() == FileIdentity{status.st_dev, status.st_ino};
}

std::size_t ReadInput(void* buffer, std::size_t bytes)
{
    for (;;) {
        const ssize_t count = read(STDIN_FILENO, buffer, bytes);
        if (count >= 0)
            return static_cast<std::size_t>(count);
        if (errno != EINTR)
            throw Failure(Exit::unreadable, fmt::format("cannot read standard input: {}", std::strerror(errno)));
    }
}

std::string PathOnDisk(const std::string& path)
{
    std::string rest = path.starts_with("\\\\?\\") ? path.substr(4) : path;
    std::replace(rest.begin(), rest.end(), '\\', '/');
    const bool hasDrive = rest.size() >= 2 && rest[1] == ':' && std::isalpha(static_cast<unsigned char>(rest[0])) != 0;
    if (!hasDrive)
        return rest;
    // A drive is a folder that the store names. Without an entry, drive C is the root.
    std::string folder =
        MachineValue("SYSTEM\\CurrentControlSet\\Control\\Session Manager\\DOS Devices", rest.substr(0, 2));
    std::replace(folder.begin(), folder.end(), '\\', '/');
    if (folder.empty() && rest[0] != 'C' && rest[0] != 'c')
        throw Failure(Exit::unreadable, fmt::format("the settings give no folder for the drive {}", rest.substr(0, 2)));
    while (folder.ends_with('/'))
        folder.pop_back();
    rest.erase(0, std::min(rest.find_first_not_of('/', 2), rest.size()));
    return folder + "/" + rest;
}

}  // namespace tool::platform
