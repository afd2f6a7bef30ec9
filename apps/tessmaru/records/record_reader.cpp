// The reader keeps one buffer. An entry lies in it whole, up to the length at which it is cut.
#include "records/record_reader.h"

#include "records/find_text.h"
#include "records/plain_run.h"

#include <algorithm>
#include <utility>

namespace records {
namespace {

constexpr std::size_t BufferUnits = 4 * RecordReader::Longest;
constexpr std::size_t LineEndUnits = 2;

}  // namespace

RecordReader::RecordReader(ByteSource& source, std::uint64_t offset)
    : Source(source), Offset(offset), Buffer(BufferUnits + 1)
{
}

/// Reads more. @return false if there is nothing more now
bool RecordReader::Fill()
{
    if (Begin != 0) {
        // The half unit after the end moves along.
        std::copy(Buffer.data() + Begin, Buffer.data() + End + 1, Buffer.data());
        End -= Begin;
        Begin = 0;
        Pending.reset();
    }
    char* const place = reinterpret_cast<char*>(Buffer.data() + End);
    const std::size_t half = HasHalf ? 1 : 0;
    const std::size_t count = Source.Read(place + half, (BufferUnits - End) * sizeof(char16_t) - half);
    const std::size_t bytes = half + count;
    HasHalf = bytes % sizeof(char16_t) != 0;
    End += bytes / sizeof(char16_t);
    return count > 0;
}

/// The length of the line that starts at `from`, with its line end, both counted from `Begin`. Nothing if the log has
/// no more line ends, or the line is longer than an entry may be.
std::optional<std::size_t> RecordReader::EndOfLine(std::size_t from)
{
    std::size_t searched = from;
    for (;;) {
        const std::u16string_view text = Unread();
        while (searched < text.size()) {
            searched += FindUnit(text.data() + searched, text.size() - searched, u'\n');
            if (searched == text.size())
                break;
            ++searched;
            // A line feed alone is a part of a text.
            if (searched >= from + LineEndUnits && text[searched - LineEndUnits] == u'\r')
                return searched;
        }
        if (text.size() - from >= Longest || !Fill())
            return std::nullopt;
    }
}

/// The length of the entry whose first line ends at `from`: up to the next line that starts a record. Nothing if the
/// log ends before and that is to be waited for.
std::optional<std::size_t> RecordReader::EndOfEntry(std::size_t from, AtEnd last)
{
    while (from < Longest) {
        const auto next = EndOfLine(from);
        if (!next) {
            const bool isEnd = End - Begin - from < Longest;
            return last == AtEnd::complete && isEnd ? std::nullopt : std::optional(from);
        }
        Pending = ParseRecord(Unread().substr(from, *next - from - LineEndUnits));
        if (Pending)
            return from;
        from = *next;
    }
    return from;
}

Entry RecordReader::Take(std::size_t length, bool isEnded, std::optional<Record> fields)
{
    Entry entry;
    entry.Offset = Offset;
    entry.IsEnded = isEnded;
    const std::u16string_view all = Unread().substr(0, length);
    const std::u16string_view line = isEnded ? all.substr(0, length - LineEndUnits) : all;
    if (!fields)
        fields = ParseRecord(line.substr(0, line.find(u"\r\n")));
    if (fields)
        entry.Fields = *fields;
    else
        entry.What = Entry::Kind::continuation;
    const std::size_t start = fields ? static_cast<std::size_t>(fields->Text.data() - line.data()) : 0;
    entry.Fields.Text = line.substr(start);
    entry.Fields.Line = line;
    Begin += length;
    Offset += length * sizeof(char16_t);
    return entry;
}

/// The last place up to `place`, counted from `Begin`, at which a record starts after a line end; 0 if there is none.
std::size_t RecordReader::LastStartBefore(std::size_t place) const
{
    const std::u16string_view text = Unread();
    for (; place >= LineEndUnits; --place) {
        if (text[place - 1] == u'\n' && text[place - 2] == u'\r' && StartsRecord(text.substr(place)))
            return place;
    }
    return 0;
}

void RecordReader::SkipToAny(const std::vector<std::u16string>& texts)
{
    std::size_t skipped = 0;
    do {
        const std::u16string_view text = Unread();
        std::size_t found = text.size();
        for (const std::u16string& each : texts)
            found = std::min(found, FindText(text.substr(0, found + each.size()), each));
        skipped = LastStartBefore(std::min(found, text.size()));
        if (skipped > 0)
            Pending.reset();
        Begin += skipped;
        Offset += skipped * sizeof(char16_t);
        // A record that fills half of the buffer is read in the usual way.
        if (found < text.size() || Unread().size() > BufferUnits / 2)
            return;
    } while (Fill());
}

void RecordReader::Restart(std::uint64_t offset)
{
    Offset = offset;
    Begin = 0;
    End = 0;
    HasHalf = false;
    Pending.reset();
}

std::optional<Entry> RecordReader::Next(AtEnd last)
{
    if (const auto line = EndOfLine(0)) {
        const char16_t* const place = Unread().data();
        const std::optional<Record> fields = std::exchange(Pending, std::nullopt);
        const auto length = EndOfEntry(*line, last);
        if (!length)
            return std::nullopt;
        const bool hasMoved = Unread().data() != place;
        return Take(*length, true, hasMoved ? std::nullopt : fields);
    }
    if (Begin == End || (last != AtEnd::all && End - Begin < Longest))
        return std::nullopt;
    std::size_t length = std::min(End - Begin, Longest);
    // A line end is not cut into two entries.
    if (length == Longest && Unread()[length - 1] == u'\r')
        --length;
    return Take(length, false, std::nullopt);
}

}  // namespace records
