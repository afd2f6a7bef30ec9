// Whole files, read and written in one call.
#include "testkit/file_content.h"

#include "testkit/paths.h"

#include <fstream>
#include <iterator>
#include <stdexcept>

namespace testkit {

std::string ReadFile(const std::filesystem::path& path)
{
    std::ifstream file(path, std::ios::binary);
    if (!file)
        throw std::runtime_error("cannot read " + ToUtf8(path));
    return {std::istreambuf_iterator<char>(file), {}};
}

void WriteFile(const std::filesystem::path& path, std::string_view content)
{
    std::ofstream file(path, std::ios::binary | std::ios::trunc);
    if (!file.write(content.data(), static_cast<std::streamsize>(content.size())))
        throw std::runtime_error("cannot write " + ToUtf8(path));
}

}  // namespace testkit
