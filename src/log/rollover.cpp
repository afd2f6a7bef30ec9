// Moves the old log file aside, before the first process of the suite opens a new one.
#include "log/rollover.h"

#include "settings/tag_specification.h"
#include "system.h"
#include "tessmaru/text.h"

using namespace utility::literals;
using utility::wstring;

namespace {

wstring PreviousPath(const wstring& path)
{
    const std::size_t separator = path.find_last_of(u"\\/"_w);
    wstring previous = path;
    previous.insert(separator == wstring::npos ? 0 : separator + 1, u"Previous "_w);
    return previous;
}

}  // namespace

void logging::MoveOldFileAside(const wstring& path)
{
    // A failure is not reported: it leaves a file to append to.
    platform::MoveFileAside(platform::Wide(path.c_str()), platform::Wide(PreviousPath(path).c_str()));
}
