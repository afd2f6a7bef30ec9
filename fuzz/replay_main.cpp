// The `main` of a fuzz target without libFuzzer: feeds it every named file, and every file of every named directory. It
// fails without inputs: a missing corpus must not pass.
#include "testkit/file_content.h"

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <exception>
#include <filesystem>
#include <string>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

namespace {

void Replay(const std::filesystem::path& path)
{
    const std::string input = testkit::ReadFile(path);
    LLVMFuzzerTestOneInput(reinterpret_cast<const std::uint8_t*>(input.data()), input.size());
}

std::size_t ReplayAll(const std::filesystem::path& path)
{
    if (!std::filesystem::is_directory(path)) {
        Replay(path);
        return 1;
    }
    std::size_t inputs = 0;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(path)) {
        if (entry.is_regular_file()) {
            Replay(entry.path());
            ++inputs;
        }
    }
    return inputs;
}

}  // namespace

int main(int argc, char** argv)
try {
    std::size_t inputs = 0;
    for (int i = 1; i < argc; ++i)
        inputs += ReplayAll(argv[i]);
    std::printf("%zu inputs\n", inputs);
    return inputs == 0 ? 1 : 0;
} catch (const std::exception& failure) {
    std::fprintf(stderr, "%s\n", failure.what());
    return 1;
}
