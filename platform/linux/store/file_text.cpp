// Decodes the bytes of an export: by the layer's own code if they are Unicode, otherwise by the converter of a code
// page.
#include "store/file_text.h"

#include "system.h"
#include "text/utf8.h"

#include <algorithm>
#include <cstring>
#include <new>

namespace {

using layer::FileText;

constexpr std::string_view Utf16Mark = "\xFF\xFE";
constexpr std::string_view Utf8Mark = "\xEF\xBB\xBF";

FileText DecodeUtf16(std::string_view bytes)
{
    FileText decoded(bytes.size() / sizeof(WCHAR) + 1);
    decoded.Count = bytes.size() / sizeof(WCHAR);
    if (decoded.Count > 0)
        std::memcpy(decoded.Buffer.get(), bytes.data(), decoded.Count * sizeof(WCHAR));
    if (bytes.size() % sizeof(WCHAR) != 0)
        decoded.PutMalformed();
    return decoded;
}

FileText DecodeAllUtf8(std::string_view bytes)
{
    FileText decoded(bytes.size());  // no character has more units than bytes
    for (std::size_t i = 0; i < bytes.size();) {
        if (static_cast<unsigned char>(bytes[i]) < 0x80) {
            decoded.Buffer[decoded.Count++] = static_cast<unsigned char>(bytes[i++]);
            continue;
        }
        const layer::DecodedCharacter character = layer::DecodeUtf8(bytes.data() + i, bytes.size() - i);
        if (character.UnitCount == 0)
            decoded.PutMalformed();
        for (unsigned unit = 0; unit < character.UnitCount; ++unit)
            decoded.Buffer[decoded.Count++] = character.Units[unit];
        i += character.ByteCount;
    }
    return decoded;
}

}  // namespace

bool layer::FileText::HasMalformedBytes(std::size_t from, std::size_t to) const
{
    const auto first = std::lower_bound(MalformedOffsets.begin(), MalformedOffsets.end(), from);
    return first != MalformedOffsets.end() && *first < to;
}

void layer::FileText::PutMalformed()
{
    const TextView unsearched = all().substr(Searched);
    const bool newLine = unsearched.find('\n') != TextView::npos || unsearched.find('\r') != TextView::npos;
    if (newLine || MalformedOffsets.empty())
        MalformedOffsets.push_back(static_cast<std::uint32_t>(Count));
    Searched = Count;
    Buffer[Count++] = ReplacementCharacter;
}

layer::NarrowDecoder::NarrowDecoder(UINT codePage)
{
    if (codePage == CP_UTF8)
        return;
    Page.emplace(codePage);
    if (Page->outOfMemory())
        throw std::bad_alloc();
    if (!Page->open())
        Page.reset();
}

layer::FileText layer::NarrowDecoder::Decode(std::string_view bytes)
{
    if (!Page)
        return DecodeAllUtf8(bytes);
    FileText decoded(bytes.size());
    for (;;) {
        const std::size_t left = bytes.size();
        Sink<WCHAR> sink(decoded.Buffer.get() + decoded.Count, static_cast<int>(left));
        const bool whole = Page->Decode(bytes, sink, false);
        // No page has a character of more units than bytes. The limit keeps the buffer safe whatever the converter
        // does.
        decoded.Count += std::min(sink.count(), left - bytes.size());
        if (whole)
            return decoded;
        decoded.PutMalformed();
        bytes.remove_prefix(1);
    }
}

bool layer::HasMark(std::string_view file)
{
    return file.starts_with(Utf16Mark) || file.starts_with(Utf8Mark);
}

layer::FileText layer::DecodeByMark(std::string_view file)
{
    if (file.starts_with(Utf16Mark))
        return DecodeUtf16(file.substr(Utf16Mark.size()));
    return DecodeAllUtf8(file.starts_with(Utf8Mark) ? file.substr(Utf8Mark.size()) : file);
}
