#include "support.h"

#include <gtest/gtest.h>

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

struct DebugOutput::Hold {
    const Variable Shown{"VELTRIX_DEBUG_OUTPUT", "1"};
};

DebugOutput::DebugOutput() : Held(new Hold)
{
    testing::internal::CaptureStderr();
}

DebugOutput::~DebugOutput() = default;

std::string DebugOutput::Text()
{
    return testing::internal::GetCapturedStderr();
}

int OpenHandles()
{
    int count = 0;
    for ([[maybe_unused]] const auto& entry : std::filesystem::directory_iterator("/proc/self/fd"))
        ++count;
    return count;
}

}  // namespace support
