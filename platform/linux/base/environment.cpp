// Reads environment variables, except in a set-user-id process.
#include "base/environment.h"

#include <cstdlib>

const char* layer::Environment(const char* name)
{
    return secure_getenv(name);
}
