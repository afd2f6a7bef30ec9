// An environment variable that is restored.
#include "testkit/environment_variable.h"

#include <cstdlib>

namespace testkit {

EnvironmentVariable::EnvironmentVariable(const char* name, const std::optional<std::string>& value) : Name(name)
{
    if (const char* const before = std::getenv(name))
        Before = before;
    SetVariable(name, value);
}

EnvironmentVariable::~EnvironmentVariable()
{
    SetVariable(Name.c_str(), Before);
}

}  // namespace testkit
