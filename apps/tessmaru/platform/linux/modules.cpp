// The modules of a process on Linux: the files of its memory map.
#include "platform/modules.h"

#include "cli/session.h"

#include <fmt/format.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fstream>
#include <map>
#include <string_view>

namespace tool::platform {
namespace {

/// The path of a line of the map; empty if the line has none. Five fields come before it.
std::string PathOf(const std::string& line)
{
    std::size_t place = 0;
    for (int field = 0; field < 5; ++field) {
        place = line.find(' ', place);
        if (place == std::string::npos)
            return {};
        place = std::min(line.find_first_not_of(' ', place), line.size());
    }
    return line[place] == '/' ? line.substr(place) : std::string();
}

}  // namespace

std::vector<Module> ModulesOf(std::uint32_t process)
{
    constexpr std::string_view mark = " (deleted)";
    errno = 0;
    std::ifstream map(fmt::format("/proc/{}/maps", process));
    std::map<std::string, bool> paths;
    bool isRead = false;
    for (std::string line; std::getline(map, line); isRead = true) {
        std::string path = PathOf(line);
        const bool isReplaced = path.ends_with(mark);
        if (isReplaced)
            path.resize(path.size() - mark.size());
        // Shared memory and devices are no modules.
        if (!path.empty() && !path.starts_with("/dev/") && !path.starts_with("/memfd:") && !path.starts_with("/SYSV"))
            paths[path] |= isReplaced;
    }
    if (!isRead)
        throw Failure(Exit::unreadable, fmt::format("cannot read the modules of process {}: {}", process,
                                                    errno == 0 ? "it has none" : std::strerror(errno)));
    std::vector<Module> modules;
    for (const auto& [path, isReplaced] : paths)
        modules.push_back({path, isReplaced});
    return modules;
}

}  // namespace tool::platform
