// Decodes the lines of a settings store.
#include "settings/store_text.h"

#include "records/text_writer.h"
#include "text/wide.h"

#include <algorithm>

namespace tool {
namespace {

constexpr std::string_view Utf16Mark = "\xFF\xFE";
constexpr std::string_view Utf8Mark = "\xEF\xBB\xBF";

std::u16string FromLatin1(std::string_view bytes)
{
    std::u16string text;
    for (const char byte : bytes)
        text += static_cast<char16_t>(static_cast<unsigned char>(byte));
    return text;
}

/// CR LF, LF and CR end a line.
std::size_t CountLines(std::u16string_view text)
{
    std::size_t lines = 1;
    for (std::size_t i = 0; i < text.size(); ++i) {
        const bool isFirstOfPair = text[i] == u'\r' && i + 1 < text.size() && text[i + 1] == u'\n';
        const bool isEnd = text[i] == u'\n' || (text[i] == u'\r' && !isFirstOfPair);
        lines += isEnd ? 1 : 0;
    }
    return lines;
}

StoreText DecodeUtf16(std::string_view bytes)
{
    StoreText text;
    for (std::size_t i = 0; i + 1 < bytes.size(); i += 2) {
        text.Units +=
            static_cast<char16_t>(static_cast<unsigned char>(bytes[i]) | static_cast<unsigned char>(bytes[i + 1]) << 8);
    }
    if (bytes.size() % 2 != 0) {
        text.BadLines.insert(CountLines(text.Units));
        text.Units += u'\xFFFD';
    }
    return text;
}

StoreText DecodeNarrow(std::string_view bytes, bool isLatin1)
{
    StoreText text;
    for (std::size_t line = 1; !bytes.empty(); ++line) {
        const std::size_t end = bytes.find_first_of("\r\n");
        const bool isPair = bytes.substr(std::min(end, bytes.size())).starts_with("\r\n");
        std::u16string units;
        if (!WidenStoreText(bytes.substr(0, end), isLatin1, units))
            text.BadLines.insert(line);
        text.Units += units;
        if (end == std::string_view::npos)
            break;
        const std::size_t next = end + (isPair ? 2 : 1);
        text.Units += FromLatin1(bytes.substr(end, next - end));
        bytes.remove_prefix(next);
    }
    return text;
}

}  // namespace

bool WidenStoreText(std::string_view bytes, bool isLatin1, std::u16string& text)
{
    text = isLatin1 ? FromLatin1(bytes) : ToUtf16(bytes);
    if (isLatin1)
        return true;
    // Bytes that are no UTF-8 became U+FFFD, which does not lead back to them.
    std::string again;
    records::AppendText(again, text, records::Form::exact);
    return again == bytes;
}

StoreText DecodeStore(std::string_view bytes, bool isLatin1)
{
    if (bytes.starts_with(Utf16Mark))
        return DecodeUtf16(bytes.substr(Utf16Mark.size()));
    if (bytes.starts_with(Utf8Mark))
        return DecodeNarrow(bytes.substr(Utf8Mark.size()), false);
    return DecodeNarrow(bytes, isLatin1);
}

}  // namespace tool
