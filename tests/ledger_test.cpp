// The check of a log file finds each kind of fault. Without that, a soak without findings would prove nothing.
#include "testkit/ledger.h"
#include "testkit/file_content.h"
#include "testkit/log_reader.h"
#include "testkit/scratch_folder.h"
#include "testkit/utf16.h"
#include "testkit/writer_reports.h"

#include <gtest/gtest.h>

#include <tuple>

namespace {

const std::string Whole = "19/11/2005 09:09:12.045 | 00000a3c | 00000ff4 | INFO |          Log | Log opened\r\n";

struct Counts {
    std::size_t Records;
    std::size_t Torn;
};

Counts Read(const std::string& bytes)
{
    const testkit::ScratchFolder folder;
    testkit::WriteFile(folder / "App.log", bytes);
    const testkit::LogFile file(folder / "App.log");
    return {file.Records().size(), file.Torn().size()};
}

}  // namespace

TEST(LogFile, ReadsTheFieldsOfARecord)
{
    const testkit::ScratchFolder folder;
    testkit::WriteFile(
        folder / "App.log",
        testkit::EncodeUtf16("1.2.24 23:59:59.999 | 0000002a | 00000001 |      | " +
                             std::string("a source of many units | M\xC3\xB6 \xF0\x9F\x93\xBB | x\r\n")));
    const testkit::LogFile file(folder / "App.log");
    ASSERT_EQ(file.Records().size(), 1U);
    const testkit::Record& record = file.Records()[0];
    EXPECT_EQ(record.Time, "1.2.24 23:59:59.999");
    EXPECT_EQ(record.Process, "0000002a");
    EXPECT_EQ(record.Thread, "00000001");
    EXPECT_EQ(record.Level, "    ");
    EXPECT_EQ(record.Source, "a source of many units");
    EXPECT_EQ(record.Text, "M\xC3\xB6 \xF0\x9F\x93\xBB | x");
}

TEST(LogFile, FindsTornRecords)
{
    const std::string whole = testkit::EncodeUtf16(Whole);
    EXPECT_EQ(Read(whole + whole).Records, 2U);
    EXPECT_EQ(Read(whole + whole).Torn, 0U);

    const struct {
        const char* Name;
        std::string Bytes;
    } rows[] = {
        {"the end is missing", testkit::EncodeUtf16(Whole.substr(0, Whole.size() - 2))},
        {"the start is missing", testkit::EncodeUtf16(Whole.substr(20))},
        {"cut in a field, another record follows", testkit::EncodeUtf16(Whole.substr(0, 30)) + whole},
        {"one byte is missing", whole.substr(1)},
        {"one more byte at the end", whole + whole.substr(0, 1)},
        {"zeros", std::string(200, '\0')},
        {"an unknown level",
         testkit::EncodeUtf16("19/11/2005 09:09:12.045 | 00000a3c | 00000ff4 | WARM |          Log | x\r\n")},
    };
    for (const auto& row : rows)
        EXPECT_GE(Read(row.Bytes).Torn, 1U) << row.Name;
}

TEST(Ledger, FindsEachKindOfFault)
{
    const struct {
        const char* Name;
        std::vector<unsigned> Numbers;  // of process 1, thread 0, which reported 3 records
        bool Killed;
        unsigned Lost, Duplicated, Misplaced, Unexpected, Unreported;
    } rows[] = {
        {"all there", {1, 2, 3}, false, 0, 0, 0, 0, 0},
        {"one lost", {1, 3}, false, 1, 0, 0, 0, 0},
        {"all lost", {}, true, 3, 0, 0, 0, 0},
        {"twice", {1, 2, 2, 3}, false, 0, 1, 0, 0, 0},
        {"out of order", {2, 1, 3}, false, 0, 0, 1, 0, 0},
        {"one more of a killed process", {1, 2, 3, 4}, true, 0, 0, 0, 0, 1},
        {"one more of a living process", {1, 2, 3, 4}, false, 0, 0, 0, 1, 0},
        {"two more", {1, 2, 3, 5}, true, 0, 0, 0, 1, 0},
        {"number zero", {0, 1, 2, 3}, false, 0, 0, 0, 1, 0},
    };
    for (const auto& row : rows) {
        const testkit::ScratchFolder folder;
        const testkit::WriterReports reports(folder / "reports", 2, 1);
        reports.At(1, 0).Written = 3;
        testkit::Ledger ledger(reports, 1, 2, {false, row.Killed});
        for (const unsigned number : row.Numbers)
            ledger.Enter({1, 0, number});
        const testkit::Findings found = ledger.Close();
        EXPECT_EQ(std::tie(found.Lost, found.Duplicated, found.Misplaced, found.Unexpected, found.Unreported),
                  std::tie(row.Lost, row.Duplicated, row.Misplaced, row.Unexpected, row.Unreported))
            << row.Name;
    }
    for (const testkit::Mark& stranger : {testkit::Mark{0, 0, 1}, testkit::Mark{2, 0, 1}, testkit::Mark{1, 1, 1}}) {
        const testkit::ScratchFolder folder;
        const testkit::WriterReports reports(folder / "reports", 2, 1);
        testkit::Ledger ledger(reports, 1, 2, {false, false});
        ledger.Enter(stranger);
        EXPECT_EQ(ledger.Close().Unexpected, 1U);
    }
}

TEST(Mark, IsTheStartOfTheText)
{
    const auto mark = testkit::ReadMark("p3 t1 n42 rest");
    ASSERT_TRUE(mark);
    EXPECT_EQ(mark->Process, 3U);
    EXPECT_EQ(mark->Thread, 1U);
    EXPECT_EQ(mark->Number, 42U);
    for (const char* text : {"", "p3 t1 n42", "p3 n42 t1 ", "p t1 n42 ", "p3 t1 n99999999999 ", " p3 t1 n42 "})
        EXPECT_FALSE(testkit::ReadMark(text)) << text;
}
