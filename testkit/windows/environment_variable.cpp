// Setting environment variables on Windows.
#include "testkit/environment_variable.h"

#include <cstdlib>

namespace testkit {

void SetVariable(const char* name, const std::optional<std::string>& value)
{
    _putenv_s(name, value ? value->c_str() : "");
}

}  // namespace testkit
