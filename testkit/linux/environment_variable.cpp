// Setting environment variables on Linux.
#include "testkit/environment_variable.h"

#include <cstdlib>

namespace testkit {

void SetVariable(const char* name, const std::optional<std::string>& value)
{
    if (value)
        setenv(name, value->c_str(), 1);
    else
        unsetenv(name);
}

}  // namespace testkit
