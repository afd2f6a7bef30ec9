// Fuzzes the reader of logs with any bytes, given in any pieces: nothing is lost, and no entry is longer than its
// limit.
#include "records/find_text.h"
#include "records/plain_run.h"
#include "records/record_reader.h"
#include "records/tail.h"
#include "records/text_writer.h"
#include "testkit/exact_copy.h"
#include "testkit/require.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>

namespace {

using testkit::Require;

class Input : public records::ByteSource, public records::RandomSource {
public:
    Input(const std::uint8_t* data, std::size_t size, std::size_t piece) : Data(data), Bytes(size), Piece(piece) {}

    std::size_t Read(void* buffer, std::size_t bytes) override
    {
        const std::size_t count = ReadAt(Place, buffer, std::min(bytes, Piece));
        Place += count;
        return count;
    }
    std::uint64_t Size() override { return Bytes; }
    std::size_t ReadAt(std::uint64_t offset, void* buffer, std::size_t bytes) override
    {
        const std::size_t begin = std::min<std::uint64_t>(offset, Bytes);
        const std::size_t count = std::min(bytes, Bytes - begin);
        if (count > 0)
            std::memcpy(buffer, Data + begin, count);
        return count;
    }

private:
    const std::uint8_t* Data;
    std::size_t Bytes;
    std::size_t Piece;
    std::size_t Place = 0;
};

/// Every unit is in exactly one entry, and each entry is bounded.
void CheckEntries(Input input, std::size_t size, records::AtEnd last)
{
    constexpr std::size_t longest = 6 * records::RecordReader::Longest;  // a limit for a text and the line after it
    records::RecordReader reader(input);
    std::uint64_t end = 0;
    while (const auto entry = reader.Next(last)) {
        Require(entry->Offset == end && reader.offset() > end);
        const std::size_t lineEnd = entry->IsEnded ? 2 : 0;
        end = reader.offset();
        Require((entry->Fields.Line.size() + lineEnd) * sizeof(char16_t) == end - entry->Offset);
        Require(entry->Fields.Line.size() <= longest);
        Require(entry->Fields.Line.ends_with(entry->Fields.Text));
        std::string shown;
        records::AppendText(shown, entry->Fields.Line, records::Form::shown);
        Require(std::none_of(shown.begin(), shown.end(), [](char c) { return c != '\n' && c >= 0 && c < ' '; }));
    }
    Require(last == records::AtEnd::all ? end == size / 2 * 2 : end <= size);
}

/// The records with a text are the same if others are skipped.
void CheckSkip(const Input& source, const std::u16string& wanted)
{
    Input one = source;
    Input other = source;
    records::RecordReader whole(one);
    records::RecordReader skipping(other);
    const auto next = [&](records::RecordReader& reader, bool skips) {
        for (;;) {
            if (skips)
                reader.SkipToAny({wanted});
            auto entry = reader.Next();
            if (!entry || (entry->What == records::Entry::Kind::record &&
                           entry->Fields.Text.find(wanted) != std::u16string_view::npos))
                return entry;
        }
    };
    for (;;) {
        const auto expected = next(whole, false);
        const auto found = next(skipping, true);
        Require(expected.has_value() == found.has_value());
        if (!expected)
            return;
        Require(expected->Offset == found->Offset && expected->Fields.Line == found->Fields.Line);
    }
}

void CheckForms(std::u16string_view text)
{
    std::string fast(text.size(), '\0');
    std::string plain(text.size(), '\0');
    const std::size_t copied = records::CopyPlainRun(text.data(), text.size(), fast.data());
    Require(copied == records::CopyPlainRunPlainly(text.data(), text.size(), plain.data()));
    Require(fast.compare(0, copied, plain, 0, copied) == 0);
    Require(records::FindUnit(text.data(), text.size(), u'\n') ==
            records::FindUnitPlainly(text.data(), text.size(), u'\n'));
    const std::u16string_view wanted = text.substr(text.size() / 2, 3);
    Require(records::FindText(text, wanted) == records::FindTextPlainly(text, wanted));
}

}  // namespace

/// The first byte chooses the length of the pieces in which the rest is read.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    if (size == 0)
        return 0;
    const testkit::ExactCopy<std::uint8_t> copy(data + 1, size - 1);
    const Input input(copy.data(), copy.size(), data[0] == 0 ? copy.size() + 1 : data[0]);
    for (const records::AtEnd last : {records::AtEnd::all, records::AtEnd::endedLines, records::AtEnd::complete})
        CheckEntries(input, copy.size(), last);

    const testkit::ExactCopy<char16_t> units(copy.data(), copy.size() / sizeof(char16_t));
    const std::u16string_view text(units.data(), units.size());
    CheckForms(text);
    if (!text.empty())
        CheckSkip(input, std::u16string(text.substr(text.size() / 3, 2)));
    Input place = input;
    const std::uint64_t offset = copy.size() / 3;
    Require(records::FindRecordStart(place, offset, copy.size()) >= offset / 2 * 2);
    return 0;
}
