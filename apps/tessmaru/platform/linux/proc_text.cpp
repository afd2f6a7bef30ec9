// Reads files of /proc.
#include "platform/linux/proc_text.h"

#include <algorithm>
#include <climits>
#include <dirent.h>
#include <fcntl.h>
#include <memory>
#include <unistd.h>

namespace tool::platform {

std::string ReadProc(const std::string& path)
{
    constexpr std::size_t most = 1024 * 1024;
    constexpr std::size_t part = 16 * 1024;
    const int file = open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY);
    std::string text;
    ssize_t count = file < 0 ? 0 : 1;
    while (count > 0 && text.size() < most) {
        const std::size_t before = text.size();
        text.resize(before + part);
        count = read(file, text.data() + before, part);
        text.resize(before + static_cast<std::size_t>(std::max<ssize_t>(count, 0)));
    }
    if (file >= 0)
        close(file);
    return text;
}

std::string ReadProcLink(const std::string& path)
{
    std::string target(PATH_MAX, '\0');
    const ssize_t count = readlink(path.c_str(), target.data(), target.size());
    target.resize(static_cast<std::size_t>(std::max<ssize_t>(count, 0)));
    return target;
}

bool ForEachName(const std::string& folder, const std::function<void(const std::string&)>& visit)
{
    const std::unique_ptr<DIR, int (*)(DIR*)> names(opendir(folder.c_str()), closedir);
    if (names == nullptr)
        return false;
    while (const dirent* const entry = readdir(names.get())) {
        if (entry->d_name[0] != '.')
            visit(entry->d_name);
    }
    return true;
}

void ForEachLine(std::string_view text, const std::function<void(std::string_view)>& visit)
{
    while (!text.empty()) {
        const std::size_t end = std::min(text.find('\n'), text.size());
        visit(text.substr(0, end));
        text.remove_prefix(std::min(end + 1, text.size()));
    }
}

std::string_view TakeWord(std::string_view& line)
{
    constexpr std::string_view blanks = " \t";
    line.remove_prefix(std::min(line.find_first_not_of(blanks), line.size()));
    const std::string_view word = line.substr(0, line.find_first_of(blanks));
    line.remove_prefix(word.size());
    return word;
}

bool FindVariable(std::string_view environment, std::string_view name, std::string& value)
{
    while (!environment.empty()) {
        const std::string_view entry = environment.substr(0, environment.find('\0'));
        if (entry.starts_with(name) && entry.substr(name.size()).starts_with('=')) {
            value = entry.substr(name.size() + 1);
            return true;
        }
        environment.remove_prefix(std::min(entry.size() + 1, environment.size()));
    }
    return false;
}

}  // namespace tool::platform
