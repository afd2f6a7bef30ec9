// The conversion of text against iconv.
#include "records/text_writer.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <iconv.h>
#include <random>
#include <string>

namespace {

/// The text by iconv. What it refuses becomes U+FFFD.
std::string ByIconv(std::u16string text)
{
    const iconv_t conversion = iconv_open("UTF-8", "UTF-16LE");
    char* in = reinterpret_cast<char*>(text.data());
    std::size_t left = text.size() * sizeof(char16_t);
    std::string result;
    while (left > 0) {
        char buffer[64];
        char* out = buffer;
        std::size_t room = sizeof buffer;
        const bool isRefused = iconv(conversion, &in, &left, &out, &room) == std::size_t(-1) && errno != E2BIG;
        result.append(buffer, out);
        if (isRefused) {
            result += "\xef\xbf\xbd";
            in += sizeof(char16_t);
            left -= sizeof(char16_t);
        }
    }
    iconv_close(conversion);
    return result;
}

TEST(AppendText, EqualsIconvOnRandomUnits)
{
    std::mt19937 random(3);
    for (int round = 0; round < 3000; ++round) {
        const auto plain = random() % 100;
        std::u16string text(random() % 400, u'\0');
        for (char16_t& unit : text)
            unit = static_cast<char16_t>(random() % 100 < plain ? 0x20 + random() % 0x5F : random() % 0x10000);
        std::string exact;
        records::AppendText(exact, text, records::Form::exact);
        ASSERT_EQ(exact, ByIconv(text)) << "round " << round;
    }
}

}  // namespace
