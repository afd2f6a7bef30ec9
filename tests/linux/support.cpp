#include "support.h"

#include <cstdio>

namespace support {

bool StartedAnew()
{
    return false;
}

void SetVariable(const char* name, const std::optional<std::string>& value)
{
    if (value)
        setenv(name, value->c_str(), 1);
    else
        unsetenv(name);
}

struct Machine::Hold {
    const Variable Store;
    const Variable Runtime;
};

Machine::Machine()
    : Store(Folder / "registry.reg"),
      Held(new Hold{{"VELTRIX_REGISTRY", Store}, {"VELTRIX_RUNTIME", Folder.path().string()}})
{
}

Machine::~Machine() = default;

void Machine::SetRegistry(std::string_view body) const
{
    support::WriteFile(Store + ".new", std::string(RegistryHeader) + std::string(body));
    std::filesystem::rename(Store + ".new", Store);
}

std::string LongPath(const std::string& path)
{
    return path;
}

void SendDebugOutputTo(const std::string& path)
{
    setenv("VELTRIX_DEBUG_OUTPUT", "1", 1);
    if (std::freopen(path.c_str(), "a", stderr) == nullptr)
        std::abort();
}

int OpenHandles()
{
    int count = 0;
    for ([[maybe_unused]] const auto& entry : std::filesystem::directory_iterator("/proc/self/fd"))
        ++count;
    return count;
}

}  // namespace support
