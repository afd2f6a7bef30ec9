// Writing of text: plain runs are copied by the fast form, the rest is written one code point at a time.
#include "records/text_writer.h"

#include "records/plain_run.h"

#include <cstdint>

namespace records {
namespace {

constexpr char32_t Replacement = 0xFFFD;
constexpr char HexDigits[] = "0123456789abcdef";

/// Takes one code point off the front of `text`. A lone surrogate gives U+FFFD.
char32_t TakeCodePoint(std::u16string_view& text)
{
    const char32_t unit = text.front();
    text.remove_prefix(1);
    if (unit < 0xD800 || unit > 0xDFFF)
        return unit;
    if (unit > 0xDBFF || text.empty() || text.front() < 0xDC00 || text.front() > 0xDFFF)
        return Replacement;
    const char32_t low = text.front();
    text.remove_prefix(1);
    return 0x10000 + ((unit - 0xD800) << 10) + (low - 0xDC00);
}

void AppendUtf8(std::string& out, char32_t point)
{
    const auto tail = [&](unsigned shift) { out += static_cast<char>(0x80 | (point >> shift & 0x3F)); };
    if (point < 0x80) {
        out += static_cast<char>(point);
    } else if (point < 0x800) {
        out += static_cast<char>(0xC0 | point >> 6);
        tail(0);
    } else if (point < 0x10000) {
        out += static_cast<char>(0xE0 | point >> 12);
        tail(6);
        tail(0);
    } else {
        out += static_cast<char>(0xF0 | point >> 18);
        tail(12);
        tail(6);
        tail(0);
    }
}

/// Whether a character could change how a terminal or an editor shows what is around it: control characters, line
/// separators, and marks that change the direction of text.
bool IsHarmful(char32_t point)
{
    return point < 0x20 || (point >= 0x7F && point < 0xA0) || (point >= 0x2028 && point <= 0x202E) ||
           (point >= 0x2066 && point <= 0x2069) || point == 0x200E || point == 0x200F || point == 0x61C ||
           point == 0xFEFF;
}

void AppendHex(std::string& out, char32_t point, unsigned digits)
{
    while (digits-- > 0)
        out += HexDigits[point >> (4 * digits) & 0xF];
}

void AppendEscape(std::string& out, char32_t point, Form form)
{
    switch (point) {
        case '\t': out += "\\t"; return;
        case '\r': out += "\\r"; return;
        case '\n': out += "\\n"; return;
        default: break;
    }
    const bool isShort = form == Form::shown && point < 0x100;
    out += isShort ? "\\x" : "\\u";
    AppendHex(out, point, isShort ? 2 : 4);
}

/// Whether the text goes on with a line end, whose first unit was taken already.
bool IsLineEnd(char32_t point, std::u16string_view& rest)
{
    if (point == '\r' && !rest.empty() && rest.front() == u'\n') {
        rest.remove_prefix(1);
        return true;
    }
    return point == '\n';
}

void AppendSpecial(std::string& out, std::u16string_view& text, Form form)
{
    const char32_t point = TakeCodePoint(text);
    if (form == Form::json && (point == '"' || point == '\\')) {
        out += '\\';
        out += static_cast<char>(point);
    } else if (form == Form::exact || !IsHarmful(point)) {
        AppendUtf8(out, point);
    } else if (form == Form::shown && IsLineEnd(point, text)) {
        out += '\n';
        out += ContinuationMark;
    } else {
        AppendEscape(out, point, form);
    }
}

}  // namespace

void AppendText(std::string& out, std::u16string_view text, Form form)
{
    while (!text.empty()) {
        const std::size_t before = out.size();
        out.resize(before + text.size());
        const std::size_t copied = CopyPlainRun(text.data(), text.size(), out.data() + before);
        out.resize(before + copied);
        text.remove_prefix(copied);
        // Text in another script has no plain runs, so the special units after each other stay in this loop.
        while (!text.empty() && !IsPlain(text.front()))
            AppendSpecial(out, text, form);
    }
}

}  // namespace records
