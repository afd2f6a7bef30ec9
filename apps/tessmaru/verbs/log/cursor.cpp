// The file of a cursor: one line of text.
#include "verbs/log/cursor.h"

#include "cli/session.h"
#include "text/paths.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <filesystem>
#include <fstream>

namespace tool {
namespace {

constexpr const char* Mark = "tessmaru-cursor-1";

/// A hash (FNV-1a) of the bytes before `offset`, at most of the first 4096. The content of a log never changes.
std::uint64_t HashOfHead(platform::InputFile& file, std::uint64_t offset)
{
    std::array<unsigned char, 4096> head;
    const std::size_t count =
        file.ReadAt(0, head.data(), static_cast<std::size_t>(std::min<std::uint64_t>(offset, head.size())));
    std::uint64_t hash = 0xCBF29CE484222325;
    for (std::size_t i = 0; i < count; ++i)
        hash = (hash ^ head[i]) * 0x100000001B3;
    return hash;
}

}  // namespace

LogPlace PlaceIn(platform::InputFile& file, std::uint64_t offset)
{
    return {file.Identity(), offset, HashOfHead(file, offset)};
}

bool IsFileOf(platform::InputFile& file, const LogPlace& place)
{
    return file.Identity().File == place.Identity.File && file.Size() >= place.Offset &&
           HashOfHead(file, place.Offset) == place.Head;
}

std::optional<LogPlace> Cursor::Load() const
{
    std::ifstream file(PathOf(Path));
    std::string mark;
    LogPlace place;
    if (file >> mark >> place.Identity.Volume >> place.Identity.File >> place.Offset >> place.Head && mark == Mark)
        return place;
    return std::nullopt;
}

void Cursor::Save(const LogPlace& place)
{
    if (Saved == place)
        return;
    const std::string fresh = Path + ".new";
    std::ofstream file(PathOf(fresh), std::ios::binary | std::ios::trunc);
    file << fmt::format("{} {} {} {} {}\n", Mark, place.Identity.Volume, place.Identity.File, place.Offset, place.Head);
    file.close();
    std::error_code failure;
    if (file)
        std::filesystem::rename(PathOf(fresh), PathOf(Path), failure);
    if (!file || failure)
        throw Failure(Exit::unreadable, "cannot write the cursor " + Path);
    Saved = place;
}

}  // namespace tool
