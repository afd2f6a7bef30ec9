// The file of the DLL on Windows: in the folder of the program, where the system finds it by its name.
#include "testkit/known_modules.h"

namespace testkit {

std::filesystem::path LibraryFile()
{
    return "tessmarU.dll";
}

}  // namespace testkit
