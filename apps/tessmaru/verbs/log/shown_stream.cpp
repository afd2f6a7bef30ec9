// Conversion without entries: the reader of records takes longer than the conversion of their text.
#include "verbs/log/shown_stream.h"

#include "records/plain_run.h"
#include "records/record.h"
#include "records/text_writer.h"

#include <algorithm>
#include <cstring>

namespace tool {
namespace {

constexpr std::size_t InputUnits = 128 * 1024;
constexpr std::size_t LookAhead = 8 * 1024;  // the fields before the text are shorter
constexpr std::size_t TextBytes = 128 * 1024;
constexpr std::size_t FullBytes = 64 * 1024;

bool IsHighSurrogate(char16_t unit)
{
    return unit >= 0xD800 && unit <= 0xDBFF;
}

}  // namespace

ShownStream::ShownStream(records::ByteSource& source, Output& out)
    : Source(source), Out(out), Input(InputUnits + 1), Text(TextBytes)
{
}

void ShownStream::WriteAll()
{
    for (;;) {
        if (!IsAtEnd && End - Begin < LookAhead)
            Fill();
        if (Begin == End)
            break;
        if (!IsLineBegun)
            BeginLine();
        CopyPlain();
        if (Begin != End && !records::IsPlain(Input[Begin]))
            WriteSpecial();
        FlushIfFull();
    }
    if (IsLineBegun)
        Append("\n");
    Out.Pass({Text.data(), Used});
    Used = 0;
}

void ShownStream::Fill()
{
    std::copy(Input.data() + Begin, Input.data() + End + 1, Input.data());
    End -= Begin;
    Begin = 0;
    while (!IsAtEnd && End < LookAhead) {
        char* const place = reinterpret_cast<char*>(Input.data() + End);
        const std::size_t half = HasHalf ? 1 : 0;
        const std::size_t count = Source.Read(place + half, (InputUnits - End) * sizeof(char16_t) - half);
        IsAtEnd = count == 0;
        HasHalf = (half + count) % sizeof(char16_t) != 0;
        End += (half + count) / sizeof(char16_t);
    }
}

void ShownStream::BeginLine()
{
    if (!records::StartsRecord(Unread()))
        Append(records::ContinuationMark);
    IsLineBegun = true;
}

void ShownStream::CopyPlain()
{
    // What is left of the buffer is filled again before the fields of a line could be cut.
    const std::size_t ahead = IsAtEnd ? 0 : LookAhead / 2;
    const std::size_t count = std::min(End - Begin - std::min(End - Begin, ahead), TextBytes - Used);
    const std::size_t copied = records::CopyPlainRun(Input.data() + Begin, count, Text.data() + Used);
    Begin += copied;
    Used += copied;
}

/// Writes a line end, or the units up to the next one that is plain or may begin a line end.
void ShownStream::WriteSpecial()
{
    const std::u16string_view text = Unread();
    if (text.starts_with(u"\r\n")) {
        Append("\n");
        IsLineBegun = false;
        Begin += 2;
        return;
    }
    constexpr std::size_t longest = 1024;
    std::size_t count = 1;
    while (count < std::min(text.size(), longest) && text[count] != u'\r' && !records::IsPlain(text[count]))
        ++count;
    if (count < text.size() && count > 1 && IsHighSurrogate(text[count - 1]))
        --count;  // its other half may follow
    else if (count == 1 && text.size() > 1 && IsHighSurrogate(text[0]))
        ++count;
    std::string special;
    records::AppendText(special, text.substr(0, count), records::Form::shown);
    Append(special);
    Begin += count;
}

void ShownStream::Append(std::string_view text)
{
    std::memcpy(Text.data() + Used, text.data(), text.size());
    Used += text.size();
}

void ShownStream::FlushIfFull()
{
    if (Used < FullBytes)
        return;
    Out.Pass({Text.data(), Used});
    Used = 0;
}

}  // namespace tool
