// Splits a log file into lines, a large block at a time.
#include "soak/log_lines.h"

#include "testkit/paths.h"
#include "testkit/utf16.h"

#include <cstring>
#include <fstream>
#include <stdexcept>
#include <vector>

namespace soak {
namespace {

constexpr std::size_t BlockUnits = 8U << 20U;
constexpr unsigned short LineEnd[] = {'\r', '\n'};
constexpr Units EndOfLine(LineEnd, 2);

}  // namespace

void ForEachLine(const std::filesystem::path& path, const std::function<void(const Line&)>& visit)
{
    std::ifstream file(path, std::ios::binary);
    if (!file)
        throw std::runtime_error("cannot read " + testkit::ToUtf8(path));
    std::vector<unsigned short> block(BlockUnits);
    std::size_t kept = 0;  // units of a line whose end is in the next block
    std::uint64_t start = 0;
    for (;;) {
        file.read(reinterpret_cast<char*>(block.data() + kept),
                  static_cast<std::streamsize>((block.size() - kept) * sizeof block[0]));
        const auto bytes = static_cast<std::size_t>(file.gcount());
        // Half a unit at the end of the file counts as a unit.
        Units rest(block.data(), kept + (bytes + 1) / sizeof block[0]);
        const bool isLast = !file;
        std::size_t end = 0;
        while ((end = rest.find(EndOfLine)) != Units::npos) {
            visit({rest.substr(0, end), start, true});
            rest.remove_prefix(end + EndOfLine.size());
            start += (end + EndOfLine.size()) * sizeof block[0];
        }
        if (isLast || rest.size() == block.size()) {
            if (!rest.empty())
                visit({rest, start, false});
            return;
        }
        kept = rest.size();
        std::memmove(block.data(), rest.data(), kept * sizeof block[0]);
    }
}

std::string ToUtf8(Units text)
{
    return testkit::DecodeUtf16({reinterpret_cast<const char*>(text.data()), text.size() * sizeof text[0]});
}

}  // namespace soak
