// A writer tries each step up to three times, so that it gets past two failures, and reports what was acknowledged.
#include "writer.h"

#include "tessmaru/log.h"
#include "tessmaru/text.h"
#include "traced_process.h"

#include <algorithm>
#include <cstdlib>
#include <ctime>

#include <dlfcn.h>
#include <fcntl.h>
#include <unistd.h>

using namespace utility::literals;
using utilities::CLog;

namespace {

std::atomic<std::time_t> shownSecond{0};  // 0: the real time

}  // namespace

/// Replaces the function of the standard library in this program, so that two runs make the same calls. The second
/// changes at one point only. The coarse clocks, by which the library judges whether the settings may have changed,
/// show one moment long after the last change.
extern "C" int clock_gettime(clockid_t clock, timespec* time) noexcept
{
    static const auto real = reinterpret_cast<int (*)(clockid_t, timespec*)>(dlsym(RTLD_NEXT, "clock_gettime"));
    const int result = real(clock, time);
    if (shownSecond == 0)
        return result;
    if (clock == CLOCK_REALTIME)
        time->tv_sec = shownSecond;
    if (clock == CLOCK_REALTIME_COARSE || clock == CLOCK_MONOTONIC_COARSE)
        *time = {shownSecond + 3600, 0};
    return result;
}

namespace kill_points {
namespace {

constexpr unsigned Attempts = 3;
constexpr unsigned LongRecord = 2;
constexpr unsigned LastOfSecond = 3;

class WriterProcess {
public:
    explicit WriterProcess(const std::vector<std::string>& words)
        : Words(words), Folder(words.at(1)), Number(static_cast<unsigned>(std::stoul(words.at(2)))), Memory(Folder),
          Report(Memory.Reports.At(Number, 0))
    {
        for (unsigned number = 0; number <= RecordsOfWriter; ++number)
            Texts.push_back(TextOf(Number, number));
    }

    int Run()
    {
        timespec now{};
        clock_gettime(CLOCK_REALTIME, &now);
        shownSecond = now.tv_sec / 60 * 60;  // the next second is in the same minute
        if (Has("--traced") && !StopForTracer())
            return NotTraced;
        if (const int status = Open(); status != 0)
            return status;
        if (Has("--plant=hang"))
            pause();
        if (Has("--hold"))
            return Hold();
        for (unsigned number = 1; number <= RecordsOfWriter; ++number) {
            Write(number);
            if (number == LastOfSecond)
                ChangeSecond();
        }
        Plant();
        return EXIT_SUCCESS;
    }

private:
    bool Has(const char* word) const { return std::find(Words.begin(), Words.end(), word) != Words.end(); }

    int Open()
    {
        for (unsigned i = 0; i < Attempts && Log == nullptr; ++i) {
            Log = CLog::GetInstance();
            if (Log != nullptr)
                break;
            const LONG code = Has("--plant=silent") ? 0 : CLog::GetInitError();
            ++Report.Failures;
            if (code >= 0)
                return NoCode;
            if (Has("--plant=crash"))
                std::abort();
        }
        Report.Opened = Log != nullptr;
        return 0;
    }

    /// A failed call must have written nothing: a second attempt would show that as a duplicate.
    void Write(unsigned number)
    {
        if (Has("--plant=early"))
            Report.Written = number;
        for (unsigned i = 0; i < Attempts && Log != nullptr; ++i) {
            if (Log->LogInfo(u"%S"_w, u"Writer"_w, Texts[number].c_str()) != 0) {
                ++Report.Failures;
                continue;
            }
            Report.Written = number;
            if (!Has("--plant=twice"))
                return;
        }
    }

    void ChangeSecond()
    {
        *Memory.Uncounted = 1;
        if (Has("--move"))
            std::filesystem::rename(Folder / "log/App.log", Folder / "log/Moved App.log");
        *Memory.Uncounted = 0;
        ++shownSecond;
    }

    int Hold()
    {
        while (Report.Goal != EndOfHolder) {
            if (Report.Written < Report.Goal && Report.Failures == 0)
                Write(Report.Written + 1);
            else
                usleep(200);
        }
        return EXIT_SUCCESS;
    }

    /// Faults on purpose, which the checks have to find.
    void Plant() const
    {
        *Memory.Uncounted = 1;
        if (Has("--plant=leftover"))
            close(creat((Folder / "run/veltrix-mutex-left").c_str(), 0600));
        if (Has("--plant=leak"))
            static_cast<void>(open("/dev/null", O_RDONLY));
        if (Has("--plant=old"))
            std::filesystem::remove(Folder / "log/Previous App.log");
        *Memory.Uncounted = 0;
    }

    const std::vector<std::string>& Words;
    const std::filesystem::path Folder;
    const unsigned Number;
    const Shared Memory;
    testkit::WriterReport& Report;
    std::vector<std::string> Texts;  // made before the tracer counts
    CLog* Log = nullptr;
};

}  // namespace

std::string TextOf(unsigned writer, unsigned number)
{
    std::string text = "p" + std::to_string(writer) + " t0 n" + std::to_string(number) + " ";
    const std::size_t length = number == LongRecord ? 1000 : 40;
    while (text.size() < length)
        text += static_cast<char>('A' + (text.size() * 7 + writer + number) % 26);
    return text;
}

void RunWriter(const std::vector<std::string>& words)
{
    // Not destroyed: its system calls would be counted. The exit closes the log.
    std::exit((new WriterProcess(words))->Run());
}

}  // namespace kill_points
