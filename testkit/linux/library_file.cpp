// The file of the shared library on Linux. The build names it.
#include "testkit/known_modules.h"

namespace testkit {

std::filesystem::path LibraryFile()
{
    return TESSMARU_LIBRARY;
}

}  // namespace testkit
