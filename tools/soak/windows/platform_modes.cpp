// Windows has no modes besides those of every platform.
#include "soak/mode.h"

std::vector<soak::NamedMode> soak::PlatformModes()
{
    return {};
}

bool soak::RunPlatformProcess(const std::vector<std::string>&)
{
    return false;
}
