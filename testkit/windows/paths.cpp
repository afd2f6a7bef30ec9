// Long paths on Windows.
#include "testkit/paths.h"

namespace testkit {

std::string LongPath(const std::string& path)
{
    return "\\\\?\\" + path;
}

}  // namespace testkit
