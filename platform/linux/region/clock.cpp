// The clock of the process: the time since the process started, which may be long before this library was loaded.
#include "base/descriptor.h"
#include "system.h"

#include <charconv>
#include <ctime>
#include <fcntl.h>
#include <string_view>
#include <unistd.h>

namespace {

/// Milliseconds since the machine started, including the time in which it was suspended.
std::int64_t Now()
{
    timespec now{};
    clock_gettime(CLOCK_BOOTTIME, &now);
    return std::int64_t{now.tv_sec} * 1000 + now.tv_nsec / 1000000;
}

/// The start time of this process on the same clock, or the current time if it cannot be determined.
std::int64_t ProcessStart()
{
    constexpr int fieldsAfterName = 19;  // field 22 of the file is the start time; the name is field 2
    const std::int64_t now = Now();
    char content[1024];
    const layer::Descriptor file(open("/proc/self/stat", O_RDONLY | O_CLOEXEC));
    const ssize_t bytes = read(file.get(), content, sizeof content);
    const std::string_view text(content, bytes > 0 ? static_cast<std::size_t>(bytes) : 0);
    // The name in brackets may itself contain blanks and brackets. The last bracket of the file ends it.
    std::size_t at = text.rfind(')');
    for (int i = 0; i <= fieldsAfterName && at != std::string_view::npos; ++i)
        at = text.find(' ', at + 1);
    std::int64_t ticks = 0;
    const long perSecond = sysconf(_SC_CLK_TCK);
    if (at == std::string_view::npos || perSecond <= 0 ||
        std::from_chars(text.data() + at + 1, text.data() + text.size(), ticks).ec != std::errc())
        return now;
    // In two parts, so that the multiplication cannot overflow.
    const std::int64_t start = ticks / perSecond * 1000 + ticks % perSecond * 1000 / perSecond;
    return start >= 0 && start <= now ? start : now;
}

}  // namespace

LONG platform::Clock()
{
    static const std::int64_t start = ProcessStart();
    return static_cast<LONG>(static_cast<ULONG>(Now() - start));
}
