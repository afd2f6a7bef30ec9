// A folder of one test or run.
#include "testkit/scratch_folder.h"

#include <cstdlib>
#include <random>
#include <system_error>

namespace testkit {

ScratchFolder::ScratchFolder(const std::filesystem::path& parent)
{
    if (const char* const joined = std::getenv(Variable)) {
        Folder = joined;
        Joined = true;
        return;
    }
    std::random_device random;
    do {
        Folder = parent / ("tessmaru-" + std::to_string(random()));
    } while (!std::filesystem::create_directory(Folder));
    std::filesystem::permissions(Folder, std::filesystem::perms::owner_all);
}

ScratchFolder::~ScratchFolder()
{
    if (Joined || Kept)
        return;
    std::error_code ignored;
    std::filesystem::remove_all(Folder, ignored);
}

}  // namespace testkit
