#include "support.h"

#include <random>

namespace support {

namespace {

/// Names the folder of a test to the processes that the test starts anew.
constexpr const char* FolderVariable = "TESSMARU_TEST_FOLDER";

std::filesystem::path MakeFolder()
{
    std::random_device random;
    for (;;) {
        std::filesystem::path path =
            std::filesystem::temp_directory_path() / ("tessmaru-test-" + std::to_string(random()));
        if (std::filesystem::create_directory(path)) {
            std::filesystem::permissions(path, std::filesystem::perms::all);
            return path;
        }
    }
}

}  // namespace

ScratchFolder::ScratchFolder()
{
    const char* const joined = StartedAnew() ? std::getenv(FolderVariable) : nullptr;
    Joined = joined != nullptr;
    Path = Joined ? joined : MakeFolder();
    SetVariable(FolderVariable, Path.string());
}

ScratchFolder::~ScratchFolder()
{
    std::error_code ignored;
    if (!Joined)
        std::filesystem::remove_all(Path, ignored);
}

}  // namespace support
