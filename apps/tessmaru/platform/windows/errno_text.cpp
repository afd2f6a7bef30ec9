// Windows numbers these errors in its own way, so it has no text for those of Linux.
#include "platform/errno_text.h"

namespace tool::platform {

std::string ErrnoText(int)
{
    return {};
}

}  // namespace tool::platform
