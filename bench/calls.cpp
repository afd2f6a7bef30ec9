// Measures calls without system calls: a named mutex without contention, and a debug record that is filtered out.
#include "empty_call.h"
#include "rows.h"

#include "tessmaru/log.h"
#include "tessmaru/platform.h"
#include "tessmaru/text.h"

#include <atomic>
#include <thread>

#include <pthread.h>

namespace bench {
namespace {

using namespace utility::literals;

/// The lock between processes that the kernel releases after its holder's death.
class RobustMutex {
public:
    explicit RobustMutex(const std::filesystem::path& path) : Mutex(path)
    {
        pthread_mutexattr_t attributes;
        pthread_mutexattr_init(&attributes);
        pthread_mutexattr_setpshared(&attributes, PTHREAD_PROCESS_SHARED);
        pthread_mutexattr_setrobust(&attributes, PTHREAD_MUTEX_ROBUST);
        pthread_mutexattr_settype(&attributes, PTHREAD_MUTEX_RECURSIVE);
        pthread_mutex_init(&*Mutex, &attributes);
        pthread_mutexattr_destroy(&attributes);
    }

    void Turn()
    {
        pthread_mutex_lock(&*Mutex);
        pthread_mutex_unlock(&*Mutex);
    }

private:
    testkit::SharedValue<pthread_mutex_t> Mutex;
};

/// A thread that does nothing: with it the process has more than one.
class IdleThread {
public:
    IdleThread() : Thread([this] { End.wait(false); }) {}
    IdleThread(const IdleThread&) = delete;
    IdleThread& operator=(const IdleThread&) = delete;
    ~IdleThread()
    {
        End = true;
        End.notify_one();
        Thread.join();
    }

private:
    std::atomic<bool> End{false};
    std::thread Thread;
};

Comparison CompareMutex(const Plan& plan)
{
    const testkit::ScratchFolder folder(std::getenv("VELTRIX_RUNTIME"));
    RobustMutex robust(folder / "robust");
    const HANDLE mutex = CreateMutexW(nullptr, FALSE, u"Bench.Mutex"_w);
    if (mutex == nullptr)
        throw std::runtime_error("no mutex");
    const auto turn = [mutex](unsigned) {
        Use(WaitForSingleObject(mutex, 1000));
        Use(ReleaseMutex(mutex));
    };
    return Compare(
        turn, [&](unsigned) { robust.Turn(); }, plan.Calls, plan.Rounds);
}

Comparison CompareMasked(const Plan& plan, const testkit::ScratchFolder& scratch)
{
    const testkit::ScratchFolder folder(scratch.path());
    MakeStore(folder / "registry.reg", folder / "App.log", 0);
    utilities::CLog* log = utilities::CLog::GetInstance();
    if (log == nullptr)
        throw std::runtime_error("no log");
    EmptyLog empty;
    const auto masked = [log](unsigned i) { Use(log->LogDebug(1, u"%u of %s"_w, u"Bench"_w, i, u"North"_w)); };
    const auto nothing = [&empty](unsigned i) { Use(empty.LogDebug(1, u"%u of %s"_w, u"Bench"_w, i, u"North"_w)); };
    return Compare(masked, nothing, 10 * plan.Calls, plan.Rounds);
}

}  // namespace

void MeasureCalls(const Plan& plan, const testkit::ScratchFolder& scratch)
{
    PrintHeading("Calls without contention");
    PrintRow("named mutex, to a robust pthread mutex", InOwnProcess([&] { return CompareMutex(plan); }), {2, 0});
    PrintRow("the same, with an idle thread", InOwnProcess([&] {
                 const IdleThread idle;
                 return CompareMutex(plan);
             }),
             {2, 0});
    PrintRow("debug record, filtered out, to an empty call", InOwnProcess([&] { return CompareMasked(plan, scratch); }),
             {2, 0});
}

}  // namespace bench
