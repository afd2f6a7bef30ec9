#include "world.h"

namespace tools {

std::string LogSection(const std::filesystem::path& path)
{
    std::string text;
    for (const char unit : ToUtf8(path))
        text += unit == '\\' ? std::string(2, unit) : std::string(1, unit);
    return "[HKEY_LOCAL_MACHINE\\SOFTWARE\\Orvane Electronics Limited\\Veltrix\\4.09.00-en\\Log\\Application]\n"
           "\"FilePath\"=\"" +
           text + "\"\n";
}

}  // namespace tools
