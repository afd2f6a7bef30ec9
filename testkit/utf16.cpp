// Conversion between UTF-8 and UTF-16 bytes.
#include "testkit/utf16.h"

#include "testkit/bytes.h"

#include <cstdint>

namespace testkit {
namespace {

void AppendUtf8(std::string& text, std::uint32_t point)
{
    const auto put = [&text](std::uint32_t byte) { text += static_cast<char>(byte); };
    if (point < 0x80) {
        put(point);
    } else if (point < 0x800) {
        put(0xC0 | (point >> 6));
        put(0x80 | (point & 0x3F));
    } else if (point < 0x10000) {
        put(0xE0 | (point >> 12));
        put(0x80 | ((point >> 6) & 0x3F));
        put(0x80 | (point & 0x3F));
    } else {
        put(0xF0 | (point >> 18));
        put(0x80 | ((point >> 12) & 0x3F));
        put(0x80 | ((point >> 6) & 0x3F));
        put(0x80 | (point & 0x3F));
    }
}

std::uint32_t ByteAt(std::string_view bytes, std::size_t at)
{
    return at < bytes.size() ? static_cast<unsigned char>(bytes[at]) : 0;
}

}  // namespace

std::string DecodeUtf16(std::string_view bytes)
{
    const auto unitAt = [bytes](std::size_t at) { return ByteAt(bytes, at) | (ByteAt(bytes, at + 1) << 8); };
    std::string text;
    text.reserve(bytes.size() / 2);
    for (std::size_t at = 0; at < bytes.size(); at += 2) {
        const std::uint32_t unit = unitAt(at);
        const std::uint32_t next = unitAt(at + 2);
        if ((unit & 0xFC00) == 0xD800 && (next & 0xFC00) == 0xDC00 && at + 3 < bytes.size()) {
            AppendUtf8(text, 0x10000 + ((unit & 0x3FF) << 10) + (next & 0x3FF));
            at += 2;
        } else {
            const bool broken = at + 1 == bytes.size() || (unit & 0xF800) == 0xD800;
            AppendUtf8(text, broken ? 0xFFFD : unit);
        }
    }
    return text;
}

std::string EncodeUtf16(std::string_view utf8)
{
    std::string bytes;
    for (std::size_t at = 0; at < utf8.size();) {
        const std::uint32_t lead = ByteAt(utf8, at);
        const unsigned tails = lead < 0xC0 ? 0 : lead < 0xE0 ? 1 : lead < 0xF0 ? 2 : 3;
        std::uint32_t point = tails == 0 ? lead : lead & (0x3FU >> tails);
        for (unsigned i = 1; i <= tails; ++i)
            point = point << 6 | (ByteAt(utf8, at + i) & 0x3F);
        at += tails + 1;
        if (point < 0x10000)
            bytes += Half(point);
        else
            bytes += Half(0xD800 + ((point - 0x10000) >> 10)) + Half(0xDC00 + (point & 0x3FF));
    }
    return bytes;
}

}  // namespace testkit
