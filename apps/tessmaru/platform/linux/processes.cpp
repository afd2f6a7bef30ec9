// Finds the processes that use a log, through /proc.
#include "platform/processes.h"

#include "platform/disk.h"
#include "platform/linux/mutex_use.h"
#include "platform/linux/proc_text.h"

#include <cerrno>
#include <charconv>
#include <climits>
#include <cstdlib>
#include <fcntl.h>
#include <memory>
#include <sys/stat.h>
#include <unistd.h>

namespace tool::platform {
namespace {

/// The path of the log with all links in its folder followed, as /proc shows it.
std::string RealPath(const std::string& path)
{
    const std::unique_ptr<char, void (*)(void*)> folder(realpath(FolderOf(path).c_str(), nullptr), std::free);
    if (folder == nullptr)
        return path;
    const std::string name = path.substr(path.rfind('/') + 1);
    return (std::string(folder.get()) == "/" ? "" : std::string(folder.get())) + "/" + name;
}

bool CanWriteTo(const std::string& process, const std::string& descriptor)
{
    unsigned flags = 0;
    ForEachLine(ReadProc(process + "/fdinfo/" + descriptor), [&](std::string_view line) {
        if (TakeWord(line) == "flags:") {
            const std::string_view word = TakeWord(line);
            std::from_chars(word.data(), word.data() + word.size(), flags, 8);
        }
    });
    return (flags & O_ACCMODE) != O_RDONLY;
}

/// The state letter and the name in a line such as "123 (a name) S 1 ...". The name can contain anything.
void ReadState(const std::string& process, LogUser& user)
{
    const std::string line = ReadProc(process + "/stat");
    const std::size_t begin = line.find('(');
    const std::size_t end = line.rfind(')');
    if (begin == std::string::npos || end == std::string::npos || end < begin || end + 2 >= line.size())
        return;
    user.Name = line.substr(begin + 1, end - begin - 1);
    user.IsStopped = line[end + 2] == 'T' || line[end + 2] == 't';
}

/// The name of the zone that a path below the folder of zones gives, or else the text itself.
std::string ZoneName(std::string text)
{
    constexpr std::string_view folder = "zoneinfo/";
    if (text.starts_with(':'))
        text.erase(0, 1);
    if (const std::size_t place = text.find(folder); place != std::string::npos)
        text.erase(0, place + folder.size());
    return text.empty() || text == "Etc/UTC" || text == "UTC0" ? "UTC" : text;
}

std::string ReadZone(const std::string& process)
{
    std::string variable;
    if (FindVariable(ReadProc(process + "/environ"), "TZ", variable))
        return ZoneName(variable);
    const std::string file = process + "/root/etc/localtime";
    if (const std::string target = ReadProcLink(file); !target.empty())
        return ZoneName(target);
    const std::string content = ReadProc(file);
    if (content.empty())
        return "UTC";
    // A copied file has no name of a zone. Its last line is the rule of the zone.
    const std::size_t end = content.find_last_not_of('\n');
    const std::size_t begin = content.rfind('\n', end);
    return begin == std::string::npos ? "unknown" : content.substr(begin + 1, end - begin);
}

class Search {
public:
    explicit Search(const std::string& path) : RemovedLog(RealPath(path) + " (deleted)")
    {
        const PathState state = StateOf(path);
        if (state.Kind == FileKind::file)
            Log = state.Identity;
    }

    void Visit(int process, LogUsers& users)
    {
        const std::string folder = "/proc/" + std::to_string(process);
        LogUser user;
        user.Process = process;
        bool isUser = false;
        const bool isReadable = ForEachName(folder + "/fd", [&](const std::string& descriptor) {
            isUser = TakeDescriptor(folder, descriptor, user) || isUser;
        });
        if (!isReadable && errno == EACCES)
            users.IsComplete = false;
        if (!isUser)
            return;
        ReadState(folder, user);
        user.Zone = ReadZone(folder);
        users.Found.push_back(std::move(user));
    }

private:
    /// @return whether the descriptor is that of the log
    bool TakeDescriptor(const std::string& process, const std::string& descriptor, LogUser& user) const
    {
        const std::string link = process + "/fd/" + descriptor;
        struct stat status {};
        if (stat(link.c_str(), &status) != 0 || !S_ISREG(status.st_mode))
            return false;
        const bool isLog = Log == FileIdentity{status.st_dev, status.st_ino};
        const bool isRemoved = status.st_nlink == 0 && ReadProcLink(link) == RemovedLog;
        if (isLog || isRemoved) {
            user.Writes = CanWriteTo(process, descriptor) || user.Writes;
            user.HasRemovedFile = isRemoved || user.HasRemovedFile;
            return true;
        }
        if (auto use = ReadMutexUse(process, descriptor))
            user.Mutexes.push_back(std::move(*use));
        return false;
    }

    std::string RemovedLog;
    FileIdentity Log;  // no file if it does not exist
};

}  // namespace

LogUsers FindLogUsers(const std::string& path)
{
    LogUsers users;
    Search search(path);
    ForEachName("/proc", [&](const std::string& name) {
        int process = 0;
        const auto [end, error] = std::from_chars(name.data(), name.data() + name.size(), process);
        if (error == std::errc() && end == name.data() + name.size() && process != getpid())
            search.Visit(process, users);
    });
    return users;
}

bool CanFindLogUsers()
{
    return true;
}

}  // namespace tool::platform
