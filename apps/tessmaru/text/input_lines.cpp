// The lines of standard input.
#include "text/input_lines.h"

#include "platform/file.h"

#include <string>

namespace tool {

void ForEachInputLine(const std::function<void(std::string_view)>& visit)
{
    constexpr std::size_t blockBytes = 64 * 1024;
    constexpr std::size_t longest = 1024 * 1024;
    std::string rest;
    for (;;) {
        const std::size_t before = rest.size();
        rest.resize(before + blockBytes);
        const std::size_t count = platform::ReadInput(rest.data() + before, blockBytes);
        rest.resize(before + count);
        std::size_t begin = 0;
        for (std::size_t end = rest.find('\n', before); end != std::string::npos; end = rest.find('\n', begin)) {
            visit(std::string_view(rest).substr(begin, end - begin));
            begin = end + 1;
        }
        rest.erase(0, begin);
        if (!rest.empty() && (count == 0 || rest.size() > longest)) {
            visit(rest);
            rest.clear();
        }
        if (count == 0)
            return;
    }
}

}  // namespace tool
