// Accounts for every record: each is in the files once, whole and in its thread's order.
//
// The kernel may cut off the write of a killed process between two pages of the file. Such a front is no fault if it is
// the front of the record that the killed thread was about to write, and ends at a page. With several mutexes another
// writer may append to the front before a line end is added; its record is then whole, but not at the start of a line.
// And two writers may end one line, which leaves an empty one.
#include "soak/log_check.h"

#include <algorithm>
#include <iterator>

namespace soak {
namespace {

constexpr std::uint64_t PageBytes = 4096;
constexpr std::size_t DigitsOfId = 8;

/// The texts that the log itself writes.
constexpr std::string_view OwnTexts[] = {"----------", "Log opened", "Log closing", "-----------"};

bool IsFrontOf(Units front, Units whole)
{
    return front.size() < whole.size() && whole.starts_with(front);
}

}  // namespace

LogCheck::LogCheck(const testkit::WriterReports& reports, const Writers& writers, unsigned seed, const Rules& rules,
                   Verdict& verdict)
    : Reports(reports), Of(writers), Seed(seed), Rule(rules), Found(verdict),
      Ledger(reports, writers.First, writers.End, writers.Killed)
{
}

void LogCheck::Read(const std::filesystem::path& path)
{
    Latest.clear();
    ForEachLine(path, [this](const Line& line) { Take(line); });
}

void LogCheck::Take(const Line& line)
{
    if (TakeWhole(line))
        return;
    const std::string_view bytes(reinterpret_cast<const char*>(line.Text.data()), line.Text.size() * 2);
    if (line.Text.find(static_cast<unsigned short>(0)) != Units::npos)
        Found.AddFault("zeros", ToUtf8(line.Text));
    else if (bytes.find(Stray.substr(0, Stray.size() - 1)) != std::string_view::npos)
        Found.AddFault("foreign", std::string(bytes));
    else if (line.Text.empty() && line.HasEnd && !Rule.HasOneMutex)
        ++Found.Counts["empty lines"];
    else if (!TakeCut(line))
        Found.AddFault("torn", "at " + std::to_string(line.Start) + ": " + ToUtf8(line.Text));
}

bool LogCheck::TakeWhole(const Line& line)
{
    const std::string text = ToUtf8(line.Text);
    const auto record = testkit::ReadRecord(text);
    if (!record || !line.HasEnd || record->Time.find_first_not_of("0123456789-/:. ") != std::string_view::npos)
        return false;
    if (record->Source == "         Log") {
        Closings += record->Text == "Log closing";
        CheckOrder(record->Time);
        return std::find(std::begin(OwnTexts), std::end(OwnTexts), record->Text) != std::end(OwnTexts);
    }
    const auto mark = testkit::ReadMark(record->Text);
    // All fields before the text are ASCII, so their length is the same in units.
    const auto header = static_cast<std::size_t>(record->Text.data() - text.data());
    if (!mark || record->Source != "        Soak" ||
        line.Text.substr(header) != KeptPart(TextOf(*mark, Seed, Rule.Texts)))
        return false;
    CheckOrder(record->Time);
    Ledger.Enter(*mark);
    return true;
}

/// Takes a line that begins with the front of a record that a kill has cut off.
bool LogCheck::TakeCut(const Line& line)
{
    if (IsCutFront(line.Text, line.end()))
        return ++Cuts != 0;
    for (std::uint64_t page = (line.Start / PageBytes + 1) * PageBytes; page < line.end(); page += PageBytes) {
        const auto length = static_cast<std::size_t>((page - line.Start) / sizeof(unsigned short));
        const Line rest{line.Text.substr(length), page, line.HasEnd};
        if (!Rule.HasOneMutex && IsCutFront(line.Text.substr(0, length), page) && TakeWhole(rest)) {
            ++Found.Counts["records after a cut front on one line"];
            return ++Cuts != 0;
        }
    }
    return false;
}

bool LogCheck::IsCutFront(Units front, std::uint64_t end)
{
    if (end % PageBytes != 0 || front.empty() || Of.KilledIds.empty())
        return false;
    const std::string text = ToUtf8(front);
    const std::size_t id = text.find(" | ");
    if (id == std::string::npos || text.size() < id + 3 + DigitsOfId)
        return text.find_first_not_of("0123456789-:. |abcdef") == std::string::npos && Cuts < Of.KilledIds.size();
    if (Of.KilledIds.count(text.substr(id + 3, DigitsOfId)) == 0)
        return false;
    const std::size_t source = text.find(" Soak | ");
    const auto mark = source == std::string::npos ? std::nullopt : testkit::ReadMark(text.substr(source + 8));
    if (!mark)
        return text.find("~stray~") == std::string::npos && Cuts < Of.KilledIds.size() * (Reports.threads() - 1);
    return mark->Process >= Of.First && mark->Process < Of.End && Of.Killed[mark->Process] &&
           mark->Thread < Reports.threads() && mark->Number == Reports.At(mark->Process, mark->Thread).Written + 1 &&
           IsFrontOf(front.substr(source + 8), KeptPart(TextOf(*mark, Seed, Rule.Texts))) &&
           CutThreads.insert({mark->Process, mark->Thread}).second;
}

/// The owner of the mutex makes the time stamp, so the stamps of one file never go back.
void LogCheck::CheckOrder(std::string_view time)
{
    constexpr std::size_t ofDay = 12;  // HH:mm:ss.mmm
    const bool isSameDay =
        Latest.size() == time.size() && time.substr(0, time.size() - ofDay) == Latest.substr(0, Latest.size() - ofDay);
    if (isSameDay && time < Latest) {
        if (Rule.HasOneMutex)
            Found.AddFault("disordered", Latest + ", then " + std::string(time));
        else
            ++Found.Counts["time stamps that go back (no fault here)"];
    }
    Latest = time;
}

void LogCheck::Close()
{
    const testkit::Findings found = Ledger.Close();
    Found.Written += found.Written;
    for (const char* word : {"torn", "zeros", "foreign"})
        Found.Faults[word] += 0;
    Found.Faults["lost"] += found.Lost;
    Found.Faults["duplicated"] += found.Duplicated;
    Found.Faults["misplaced"] += found.Misplaced;
    Found.Faults["unexpected"] += found.Unexpected;
    if (Rule.HasOneMutex)
        Found.Faults["disordered"] += 0;
    if (Rule.ClosesLog)
        Found.Faults["not closed"] += Of.Closings > Closings ? Of.Closings - Closings : Closings - Of.Closings;
    Found.Counts["whole but not reported by killed processes"] += found.Unreported;
    Found.Counts["cut off by a kill, and not reported"] += Cuts;
}

}  // namespace soak
