// One account for each thread. A number that is entered twice, too late or never is a fault.
#include "testkit/ledger.h"

#include <algorithm>
#include <charconv>

namespace testkit {
namespace {

bool TakeNumber(std::string_view& text, char letter, unsigned& number)
{
    if (text.empty() || text.front() != letter)
        return false;
    const char* end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data() + 1, end, number);
    if (error != std::errc() || stop == end || *stop != ' ')
        return false;
    text.remove_prefix(static_cast<std::size_t>(stop + 1 - text.data()));
    return true;
}

}  // namespace

std::optional<Mark> ReadMark(std::string_view text)
{
    Mark mark{};
    if (TakeNumber(text, 'p', mark.Process) && TakeNumber(text, 't', mark.Thread) && TakeNumber(text, 'n', mark.Number))
        return mark;
    return std::nullopt;
}

Ledger::Ledger(const WriterReports& reports, unsigned first, unsigned end, const std::vector<bool>& killed)
    : First(first), Threads(reports.threads())
{
    for (unsigned process = first; process < end; ++process) {
        for (unsigned thread = 0; thread < Threads; ++thread) {
            Account account;
            account.Written = reports.At(process, thread).Written;
            account.Seen.resize(account.Written + (killed.at(process) ? 2 : 1));
            Accounts.push_back(account);
        }
    }
}

void Ledger::Enter(const Mark& mark)
{
    const std::size_t index = static_cast<std::size_t>(mark.Process - First) * Threads + mark.Thread;
    if (mark.Process < First || mark.Thread >= Threads || index >= Accounts.size() || mark.Number == 0 ||
        mark.Number >= Accounts[index].Seen.size()) {
        ++Found.Unexpected;
        return;
    }
    Account& account = Accounts[index];
    if (account.Seen[mark.Number])
        ++Found.Duplicated;
    else if (mark.Number < account.Highest)
        ++Found.Misplaced;
    account.Seen[mark.Number] = true;
    account.Highest = std::max(account.Highest, mark.Number);
}

Findings Ledger::Close() const
{
    Findings findings = Found;
    for (const Account& account : Accounts) {
        findings.Written += account.Written;
        for (unsigned number = 1; number < account.Seen.size(); ++number) {
            const bool reported = number <= account.Written;
            findings.Lost += reported && !account.Seen[number];
            findings.Unreported += !reported && account.Seen[number];
        }
    }
    return findings;
}

}  // namespace testkit
