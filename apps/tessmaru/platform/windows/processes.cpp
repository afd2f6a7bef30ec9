// Windows has no documented list of the files that other processes have open.
#include "platform/processes.h"

namespace tool::platform {

LogUsers FindLogUsers(const std::string&)
{
    return {};
}

bool CanFindLogUsers()
{
    return false;
}

}  // namespace tool::platform
