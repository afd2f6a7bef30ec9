// Files and folders on Linux.
#include "platform/disk.h"

#include <cctype>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

namespace tool::platform {
namespace {

FileKind KindOf(mode_t mode)
{
    if (S_ISREG(mode))
        return FileKind::file;
    if (S_ISDIR(mode))
        return FileKind::folder;
    return S_ISLNK(mode) ? FileKind::link : FileKind::other;
}

bool IsSeparator(char letter)
{
    return letter == '/' || letter == '\\';
}

}  // namespace

PathState StateOf(const std::string& path)
{
    PathState state;
    struct stat status {};
    if (lstat(path.c_str(), &status) != 0) {
        if (errno != ENOENT && errno != ENOTDIR)
            state.Error = std::strerror(errno);
        return state;
    }
    state.Kind = KindOf(status.st_mode);
    state.Links = status.st_nlink;
    state.Identity = {status.st_dev, status.st_ino};
    const bool isFolder = state.Kind == FileKind::folder;
    state.CanWrite = faccessat(AT_FDCWD, path.c_str(), isFolder ? W_OK | X_OK : W_OK, AT_EACCESS) == 0;
    state.IsOpenToAll = isFolder && (status.st_mode & S_IWOTH) != 0 && (status.st_mode & S_ISVTX) == 0;
    return state;
}

std::optional<std::uint64_t> FreeSpace(const std::string& folder)
{
    struct statvfs status {};
    if (statvfs(folder.c_str(), &status) != 0)
        return std::nullopt;
    return static_cast<std::uint64_t>(status.f_bavail) * status.f_frsize;
}

std::string FolderOf(const std::string& path)
{
    const std::size_t end = path.rfind('/');
    if (end == std::string::npos)
        return ".";
    return path.substr(0, end == 0 ? 1 : end);
}

std::string PathFault(const std::string& path)
{
    const bool isNetwork = path.size() >= 2 && IsSeparator(path[0]) && IsSeparator(path[1]);
    if (isNetwork && (!path.starts_with("\\\\?\\") || path.starts_with("\\\\?\\UNC\\")))
        return "it names another machine, which is not possible here";
    const bool hasDrive = path.size() >= 2 && path[1] == ':' && std::isalpha(static_cast<unsigned char>(path[0])) != 0;
    return hasDrive || (!path.empty() && IsSeparator(path[0]))
               ? std::string()
               : "it is not complete, so it depends on the folder of each process";
}

std::string RuntimeFolder()
{
    constexpr const char* ofSuite = "/run/veltrix";
    const char* const chosen = std::getenv("VELTRIX_RUNTIME");
    if (chosen != nullptr && *chosen != '\0')
        return chosen;
    return StateOf(ofSuite).Kind == FileKind::folder ? ofSuite : "/dev/shm";
}

std::string QuotedWord(const std::string& word)
{
    constexpr std::string_view plain = "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789/._-+:,@%=";
    if (!word.empty() && word.find_first_not_of(plain) == std::string::npos)
        return word;
    std::string quoted = "'";
    for (const char letter : word)
        quoted += letter == '\'' ? std::string("'\\''") : std::string(1, letter);
    return quoted + "'";
}

}  // namespace tool::platform
