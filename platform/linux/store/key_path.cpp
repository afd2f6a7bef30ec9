// Takes paths of keys apart.
#include "store/key_path.h"

#include <algorithm>
#include <iterator>

namespace {

/// Whether two separators follow each other. One of two neighbours has an odd index, so every other unit is enough;
/// each opening of a key searches its whole path.
bool HasRun(layer::TextView path)
{
    for (std::size_t i = 1; i < path.size(); i += 2) {
        if (path[i] == layer::PathSeparator &&
            (path[i - 1] == layer::PathSeparator || (i + 1 < path.size() && path[i + 1] == layer::PathSeparator)))
            return true;
    }
    return false;
}

}  // namespace

layer::TextView layer::NormalizePath(TextView path, Text& storage)
{
    while (path.ends_with(PathSeparator))
        path.remove_suffix(1);
    if (!HasRun(path))
        return path;
    storage.clear();
    std::unique_copy(path.begin(), path.end(), std::back_inserter(storage),
                     [](WCHAR left, WCHAR right) { return left == PathSeparator && right == PathSeparator; });
    return storage;
}

layer::TextView layer::TakeFirstPart(TextView& path)
{
    const std::size_t length = std::min(path.find(PathSeparator), path.size());
    const TextView part = path.substr(0, length);
    path.remove_prefix(std::min(length + 1, path.size()));
    return part;
}
