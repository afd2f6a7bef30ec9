// Conversions between UTF-8 and the library's 16-bit text.
#include "text/wide.h"

#include "records/text_writer.h"

#include <cstdint>

namespace tool {
namespace {

constexpr char16_t Replacement = 0xFFFD;

struct Sequence {
    unsigned Length;
    char32_t FirstBits;
    char32_t Least;  // a smaller value has a shorter sequence
};

Sequence SequenceOf(unsigned char first)
{
    if (first < 0x80)
        return {1, first, 0};
    if (first >= 0xC2 && first < 0xE0)
        return {2, first & 0x1FU, 0x80};
    if (first >= 0xE0 && first < 0xF0)
        return {3, first & 0xFU, 0x800};
    if (first >= 0xF0 && first < 0xF5)
        return {4, first & 0x7U, 0x10000};
    return {0, 0, 0};
}

/// Takes one code point off the front of `text`; U+FFFD and one byte if it starts with none.
char32_t TakeCodePoint(std::string_view& text)
{
    const Sequence sequence = SequenceOf(static_cast<unsigned char>(text.front()));
    char32_t point = sequence.FirstBits;
    bool isSound = sequence.Length > 0 && sequence.Length <= text.size();
    for (unsigned i = 1; isSound && i < sequence.Length; ++i) {
        const auto byte = static_cast<unsigned char>(text[i]);
        isSound = (byte & 0xC0) == 0x80;
        point = point << 6 | (byte & 0x3FU);
    }
    isSound = isSound && point >= sequence.Least && point < 0x110000 && (point < 0xD800 || point > 0xDFFF);
    text.remove_prefix(isSound ? sequence.Length : 1);
    return isSound ? point : Replacement;
}

}  // namespace

std::string ToUtf8(const utility::wstring& text)
{
    std::string out;
    records::AppendText(out, std::u16string(text.begin(), text.end()), records::Form::exact);
    return out;
}

std::u16string ToUtf16(std::string_view text)
{
    std::u16string wide;
    while (!text.empty()) {
        const char32_t point = TakeCodePoint(text);
        if (point < 0x10000) {
            wide += static_cast<char16_t>(point);
        } else {
            wide += static_cast<char16_t>(0xD800 + ((point - 0x10000) >> 10));
            wide += static_cast<char16_t>(0xDC00 + (point & 0x3FF));
        }
    }
    return wide;
}

utility::wstring FromUtf8(std::string_view text)
{
    const std::u16string wide = ToUtf16(text);
    return {wide.begin(), wide.end()};
}

std::string Shown(std::string_view text)
{
    std::string out;
    records::AppendText(out, ToUtf16(text), records::Form::shown);
    return out;
}

}  // namespace tool
