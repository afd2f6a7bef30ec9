// Forms of a path that are the same on every platform.
#include "testkit/paths.h"

namespace testkit {

std::string ToUtf8(const std::filesystem::path& path)
{
    const std::u8string text = path.u8string();
    return {text.begin(), text.end()};
}

std::filesystem::path FromUtf8(const std::string& text)
{
    return std::u8string(text.begin(), text.end());
}

}  // namespace testkit
