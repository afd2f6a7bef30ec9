// The reader of records, and the forms of its text functions against plain ones and against iconv.
#include "records/find_text.h"
#include "records/plain_run.h"
#include "records/record_reader.h"
#include "records/tail.h"
#include "records/text_writer.h"
#include "testkit/utf16.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <string>

namespace {

using namespace records;

/// Texts of all kinds of units, with long and short runs of plain ones.
std::u16string RandomText(std::mt19937& random, std::size_t units)
{
    constexpr char16_t special[] = {'"',   '\\',  '\n',   '\r',   '\t',   0x1F,   0x7F,   0x80,   0xFF,  0x100,
                                    0x7FF, 0x800, 0x8041, 0xD800, 0xDC00, 0xDBFF, 0xDFFF, 0xFEFF, 0xFFFF};
    const auto plain = random() % 100;
    std::u16string text;
    while (text.size() < units)
        text += random() % 100 < plain ? static_cast<char16_t>(0x20 + random() % 0x5F)
                                       : special[random() % std::size(special)];
    return text;
}

std::string BytesOf(std::u16string_view text)
{
    return {reinterpret_cast<const char*>(text.data()), text.size() * sizeof(char16_t)};
}

TEST(VectorForms, EqualThePlainFormsAndAConversion)
{
    std::mt19937 random(1);
    for (int round = 0; round < 20'000; ++round) {
        const std::u16string all = RandomText(random, random() % 150 + 8);
        const std::u16string_view text = std::u16string_view(all).substr(random() % 8);
        std::string fast(text.size(), '\0');
        std::string plain = fast;
        const std::size_t copied = CopyPlainRun(text.data(), text.size(), fast.data());
        ASSERT_EQ(copied, CopyPlainRunPlainly(text.data(), text.size(), plain.data()));
        ASSERT_EQ(fast.substr(0, copied), plain.substr(0, copied));
        ASSERT_EQ(FindUnit(text.data(), text.size(), u'\n'), FindUnitPlainly(text.data(), text.size(), u'\n'));

        const std::u16string other = RandomText(random, 1 + random() % 4);
        const std::u16string_view part = text.substr(random() % (text.size() + 1), random() % 20);
        ASSERT_EQ(FindText(text, part), text.find(part));
        ASSERT_EQ(FindText(text, other), FindTextPlainly(text, other));

        std::string exact;
        AppendText(exact, text, Form::exact);
        ASSERT_EQ(exact, testkit::DecodeUtf16(BytesOf(text)));
    }
}

TEST(TextWriter, WritesNothingThatForgesARecordOrMovesTheCursor)
{
    std::mt19937 random(2);
    for (int round = 0; round < 5000; ++round) {
        const std::u16string text = RandomText(random, 60);
        std::string shown;
        AppendText(shown, text, Form::shown);
        for (std::size_t i = 0; i < shown.size(); ++i) {
            ASSERT_TRUE(static_cast<unsigned char>(shown[i]) >= 0x20 || shown[i] == '\n');
            ASSERT_TRUE(shown[i] != '\n' || shown.substr(i + 1).starts_with(ContinuationMark));
        }
        std::string json;
        AppendText(json, text, Form::json);
        ASSERT_TRUE(
            std::all_of(json.begin(), json.end(), [](char c) { return static_cast<unsigned char>(c) >= 0x20; }));
    }
    std::string all;
    AppendText(all, u"a\"\\\r\n\t\x1b\u202e\U0001F600\xd83d", Form::json);
    EXPECT_EQ(all, "a\\\"\\\\\\r\\n\\t\\u001b\\u202e\xf0\x9f\x98\x80\xef\xbf\xbd");
}

/// A log in memory, given in small pieces of any length.
class Pieces : public ByteSource, public RandomSource {
public:
    Pieces(std::string bytes, unsigned seed) : Bytes(std::move(bytes)), Random(seed) {}

    std::size_t Read(void* buffer, std::size_t bytes) override
    {
        const std::size_t count = ReadAt(Place, buffer, std::min<std::size_t>(bytes, 1 + Random() % 300));
        Place += count;
        return count;
    }
    std::uint64_t Size() override { return Bytes.size(); }
    std::size_t ReadAt(std::uint64_t offset, void* buffer, std::size_t bytes) override
    {
        return offset < Bytes.size() ? Bytes.copy(static_cast<char*>(buffer), bytes, offset) : 0;
    }

    std::string Bytes;
    std::size_t Place = 0;

private:
    std::mt19937 Random;
};

const std::string Start = "2026-11-22 09:09:12.045 | 00000bee | 00000bef | WARN |        Radio | ";

std::vector<std::string> LinesOf(Pieces& log, AtEnd last = AtEnd::all)
{
    RecordReader reader(log);
    std::vector<std::string> lines;
    while (const auto entry = reader.Next(last))
        lines.push_back((entry->What == Entry::Kind::record ? "" : "+") +
                        testkit::DecodeUtf16(BytesOf(entry->Fields.Line)));
    return lines;
}

TEST(RecordReader, GivesRecordsWithTheirLinesWhateverTheReadsAre)
{
    const std::vector<std::string> expected = {"+stray", Start + "one", Start + "two\r\nand | more\nof it", Start,
                                               Start + "cut"};
    const std::string text =
        "stray\r\n" + Start + "one\r\n" + Start + "two\r\nand | more\nof it\r\n" + Start + "\r\n" + Start + "cut";
    for (unsigned seed = 0; seed < 200; ++seed) {
        Pieces log(testkit::EncodeUtf16(text) + "x", seed);
        ASSERT_EQ(LinesOf(log), expected);
    }
}

TEST(RecordReader, WaitsForTheEndOfARecord)
{
    Pieces log(testkit::EncodeUtf16(Start + "one\r\n" + Start + "two\r\nmo"), 1);
    RecordReader reader(log);
    EXPECT_TRUE(reader.Next(AtEnd::complete));
    EXPECT_FALSE(reader.Next(AtEnd::complete));
    log.Bytes += testkit::EncodeUtf16("re\r\n");
    EXPECT_FALSE(reader.Next(AtEnd::complete));
    const auto entry = reader.Next(AtEnd::endedLines);
    ASSERT_TRUE(entry);
    EXPECT_EQ(entry->Fields.Text, u"two\r\nmore");
    EXPECT_FALSE(reader.Next(AtEnd::endedLines));
    EXPECT_EQ(reader.offset(), log.Bytes.size());
}

TEST(RecordReader, CutsALineThatIsTooLong)
{
    const std::string text = Start + std::string(3 * RecordReader::Longest, 'x') + "\r\n" + Start + "next\r\n";
    Pieces log(testkit::EncodeUtf16(text), 1);
    const auto lines = LinesOf(log);
    std::string joined;
    for (std::size_t i = 0; i + 1 < lines.size(); ++i)
        joined += lines[i].substr(i == 0 ? 0 : 1);
    EXPECT_EQ(joined + "\r\n", text.substr(0, text.rfind(Start)));
    EXPECT_EQ(lines.back(), Start + "next");
}

TEST(FindRecordStart, FindsTheFirstRecordFromAnyOffset)
{
    const std::string text =
        "stray\r\n" + Start + "one\r\n" + Start + std::string(40'000, 'y') + "\r\nmore\r\n" + Start;
    Pieces log(testkit::EncodeUtf16(text), 1);
    std::vector<std::uint64_t> starts;
    for (std::size_t place = text.find(Start); place != std::string::npos; place = text.find(Start, place + 1))
        starts.push_back(2 * place);
    for (std::uint64_t offset = 0; offset < log.Size(); offset += offset % 7 + 1) {
        const auto next =
            std::find_if(starts.begin(), starts.end(), [&](auto start) { return start >= offset / 2 * 2; });
        ASSERT_EQ(FindRecordStart(log, offset, log.Size()), next == starts.end() ? log.Size() : *next) << offset;
    }
}

}  // namespace
