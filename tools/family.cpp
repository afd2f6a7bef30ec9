// What a family has that is the same on every platform.
#include "family.h"

#include <random>
#include <stdexcept>
#include <system_error>

namespace tools {

ScratchFolder::ScratchFolder(const std::filesystem::path& parent)
{
    std::random_device random;
    do {
        Folder = parent / ("tessmaru-" + std::to_string(random()));
    } while (!std::filesystem::create_directory(Folder));
    std::filesystem::permissions(Folder, std::filesystem::perms::owner_all);
}

ScratchFolder::~ScratchFolder()
{
    if (Kept)
        return;
    std::error_code ignored;
    std::filesystem::remove_all(Folder, ignored);
}

std::string ToUtf8(const std::filesystem::path& path)
{
    const std::u8string text = path.u8string();
    return {text.begin(), text.end()};
}

std::filesystem::path FromUtf8(const std::string& text)
{
    return std::u8string(text.begin(), text.end());
}

Board::Board(const std::filesystem::path& path, unsigned processes, unsigned threads)
    : ProcessCount(processes), ThreadCount(threads),
      Reports(static_cast<Report*>(MapFile(path, sizeof(Report) * processes * threads)))
{
}

Board::~Board()
{
    UnmapFile(Reports, sizeof(Report) * ProcessCount * ThreadCount);
}

Report& Board::At(unsigned process, unsigned thread) const
{
    if (process >= ProcessCount || thread >= ThreadCount)
        throw std::out_of_range("no such report");
    return Reports[process * ThreadCount + thread];
}

}  // namespace tools
