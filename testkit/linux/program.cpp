// The program that runs, on Linux.
#include "testkit/program.h"

namespace testkit {

std::filesystem::path ThisProgram()
{
    return std::filesystem::read_symlink("/proc/self/exe");
}

std::vector<std::string> Arguments(int count, char** arguments)
{
    return {arguments + 1, arguments + count};
}

}  // namespace testkit
