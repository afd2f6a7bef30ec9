// Writes records until each thread has reached its goal.
//
// A call that returns a failure must have written nothing: the thread tries the same number again, so a record that is
// in the file in spite of the failure shows as a duplicate.
#include "soak/writer.h"

#include "testkit/paths.h"
#include "testkit/process_family.h"
#include "testkit/settings_store.h"
#include "testkit/writer_reports.h"

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <thread>

using namespace utility::literals;
using utilities::CLog;

namespace soak {
namespace {

constexpr std::uint32_t TimedOut = 0x80040302;
constexpr std::string_view OrderWord = "--write";
constexpr unsigned FaultAt = 10;  // the number of the record with the deliberate fault

/// One writing thread.
class Writer {
public:
    Writer(Mode& mode, const WriterOrder& order, const testkit::WriterReports& reports, CLog& log, unsigned thread)
        : Manner(mode), Order(order), Report(reports.At(order.Process, thread)),
          Log(log), Mark{order.Process, thread, 1}
    {
    }

    void WriteUpToGoal()
    {
        while (Mark.Number <= Report.Goal) {
            if (Mark.Thread == 0 && Mark.Number == FaultAt)
                DoFault();
            const std::uint32_t code = Send(Mark, TextOf(Mark, Order.Seed, Manner.rules().Texts));
            if (code == 0)
                Report.Written = Mark.Number++;
            else if (!Bear(code))
                return;
            if (Order.Pause != 0)
                std::this_thread::sleep_for(std::chrono::microseconds(Order.Pause));
        }
    }

private:
    std::uint32_t Send(const testkit::Mark& mark, const utility::wstring& text)
    {
        const auto hold = Manner.HoldDuringCall();
        return static_cast<std::uint32_t>(Call(mark, text.c_str()));
    }

    LONG Call(const testkit::Mark& mark, const unsigned short* text)
    {
        switch (mark.Number % 4) {
            case 0: return Log.LogError(u"%s"_w, u"Soak"_w, text);
            case 1: return Log.LogWarn(u"%s"_w, u"Soak"_w, text);
            case 2: return Log.LogInfo(u"%s"_w, u"Soak"_w, text);
            default: return Log.LogStatus(u"%s"_w, u"Soak"_w, text);
        }
    }

    /// @return whether the thread goes on after a failure
    bool Bear(std::uint32_t code)
    {
        if (code == TimedOut) {
            ++Report.Timeouts;
            return true;
        }
        Report.LastFailure = code;
        ++Report.Failures;
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
        return Manner.rules().BearsFailures;
    }

    /// The faults of a writer that the check has to find.
    void DoFault()
    {
        const auto log = [this](testkit::Mark mark, std::size_t cut = 0) {
            utility::wstring text = KeptPart(TextOf(mark, Order.Seed, Manner.rules().Texts));
            text.resize(text.size() - cut);
            Send(mark, text);
        };
        if (Order.Control == "skip")
            Report.Written = Mark.Number++;
        else if (Order.Control == "repeat")
            log(Mark);
        else if (Order.Control == "cut")
            log(Mark, 1);
        else if (Order.Control == "stranger")
            log({Mark.Process + Order.Processes, Mark.Thread, Mark.Number});
        else if (Order.Control == "swap")
            log({Mark.Process, Mark.Thread, Mark.Number + 1});
    }

    Mode& Manner;
    const WriterOrder& Order;
    testkit::WriterReport& Report;
    CLog& Log;
    testkit::Mark Mark;
};

/// Opens the log. A mode may obstruct that, so a failure is not always the end.
CLog* OpenLog(Mode& mode, testkit::WriterReport& report)
{
    CLog* log = CLog::GetInstance();
    while (log == nullptr && mode.rules().BearsFailures) {
        report.LastFailure = static_cast<std::uint32_t>(CLog::GetInitError());
        ++report.Failures;
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
        log = CLog::GetInstance();
    }
    return log;
}

}  // namespace

std::vector<std::string> WriterOrder::Words() const
{
    return {std::string(OrderWord),          Mode,
            Control.empty() ? "-" : Control, testkit::ToUtf8(Folder),
            std::to_string(Processes),       std::to_string(Threads),
            std::to_string(Process),         std::to_string(Seed),
            std::to_string(Pause),           IsHolder ? "holder" : "writer"};
}

std::optional<WriterOrder> WriterOrder::Read(const std::vector<std::string>& words)
{
    if (words.size() != 10 || words[0] != OrderWord)
        return std::nullopt;
    return WriterOrder{words[1],         words[2],         testkit::FromUtf8(words[3]),
                       Number(words[4]), Number(words[5]), Number(words[6]),
                       Number(words[7]), Number(words[8]), words[9] == "holder"};
}

int Write(const WriterOrder& order)
{
    const std::unique_ptr<Mode> mode = FindMode(order.Mode).Make();
    mode->EnterWriter(order);
    testkit::JoinSettingsStore();
    const testkit::WriterReports reports(order.Reports(), order.Processes, order.Accounts());
    CLog* const log = OpenLog(*mode, reports.At(order.Process, 0));
    if (log == nullptr) {
        std::fprintf(stderr, "soak: process %u cannot open the log: 0x%08X\n", order.Process,
                     static_cast<unsigned>(CLog::GetInitError()));
        return EXIT_FAILURE;
    }
    mode->LogIsOpen(order, *log);
    reports.At(order.Process, 0).Opened = 1;
    std::vector<std::thread> threads;
    for (unsigned thread = 0; thread < order.Threads; ++thread)
        threads.emplace_back([&, thread] { Writer(*mode, order, reports, *log, thread).WriteUpToGoal(); });
    for (std::thread& thread : threads)
        thread.join();
    mode->AllIsWritten();
    mode->WaitToEnd(order);
    return EXIT_SUCCESS;
}

}  // namespace soak
