// The mode "forks": while the threads of a writer log, another thread forks children, which log one record each.
#include "soak/linux/platform_modes.h"
#include "soak/linux/writer_process.h"
#include "soak/run.h"
#include "soak/writer.h"

#include <atomic>
#include <optional>
#include <thread>

#include <sys/wait.h>
#include <unistd.h>

using namespace utility::literals;

namespace soak {
namespace {

class Forks final : public Mode {
public:
    Rules rules() const override { return {.NeedsDisturbances = true}; }
    void SetDefaults(Options& options) const override { options.Kills = 200; }
    std::vector<Control> controls() const override { return {{"lazy-child", "lost"}}; }

    void Check(Run& run) override
    {
        for (unsigned process = 0; process < run.Config.AllProcesses(); ++process)
            run.Found.Counts["disturbances"] += run.Reports.At(process, run.Config.Threads).Written;
    }

    void LogIsOpen(const WriterOrder& order, utilities::CLog& log) override
    {
        Forking = std::thread([this, order, &log] {
            const testkit::WriterReports reports(order.Reports(), order.Processes, order.Accounts());
            while (!Ends && ForkOne(order, log, reports.At(order.Process, order.Threads)))
                std::this_thread::sleep_for(std::chrono::milliseconds(2));
        });
    }

    void AllIsWritten() override
    {
        Ends = true;
        Forking.join();
    }

private:
    /// @return whether the child ended well
    static bool ForkOne(const WriterOrder& order, utilities::CLog& log, testkit::WriterReport& report)
    {
        const testkit::Mark mark{order.Process, order.Threads, report.Written + 1};
        // Before the fork: in the child another thread's lock of the heap may be held for ever.
        const utility::wstring text = TextOf(mark, order.Seed, Lengths::usual);
        const pid_t child = fork();
        if (child == 0) {
            DieWithParent();
            const bool isLazy = order.Control == "lazy-child";
            const LONG code = isLazy ? 0 : log.LogInfo(u"%s"_w, u"Soak"_w, text.c_str());
            if (code == 0)
                report.Written = mark.Number;
            _exit(static_cast<std::uint32_t>(code) == 0x80040302 || code == 0 ? 0 : 1);
        }
        int status = 0;
        if (child < 0 || waitpid(child, &status, 0) != child)
            return false;
        report.Failures += status != 0;
        return status == 0;
    }

    std::atomic<bool> Ends{false};
    std::thread Forking;
};

}  // namespace

std::unique_ptr<Mode> MakeForks()
{
    return std::make_unique<Forks>();
}

}  // namespace soak
