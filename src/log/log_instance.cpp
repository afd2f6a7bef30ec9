// The lifetime of the process's log: the first GetInstance makes it, the unloading of the library closes it.
#include "log/call_gate.h"
#include "log/codes.h"
#include "log/writer_hold.h"
#include "primitives/section_hold.h"
#include "settings/tag_specification.h"
#include "system.h"
#include "tessmaru/log.h"
#include "tessmaru/settings.h"
#include "tessmaru/text.h"

#include <cstddef>
#include <memory>
#include <new>

using namespace utility::literals;

namespace utilities {

// Constructed before the library's entry call and before every static of a program that links the library, so destroyed
// after them: a record that their destructors write still comes before the closing lines. The deleter is destroyed
// first, because it needs the other two.
[[gnu::init_priority(201)]] utility::wstring CLog::RegLogfilePath;
[[gnu::init_priority(201)]] utility::CCriticalSection CLog::CSection;
[[gnu::init_priority(201)]] CLog::InstanceDeleter CLog::CLogDeleter;
CLog* CLog::_instance = nullptr;
std::atomic<LONG> CLog::InitError{0};

CLog::log_exception::~log_exception() = default;

namespace {

// The time that the calls inside the log get to finish when the process ends. Each waits for the mutex of the file for
// at most half of it.
constexpr DWORD ClosingMilliseconds = 2 * logging::RecordWaitMilliseconds;

}  // namespace

CLog* CLog::GetInstance()
{
    const logging::Call call;
    if (!call.isAdmitted())
        return nullptr;
    const SectionHold hold(CSection);
    if (_instance != nullptr)
        return _instance;
    // Not on the heap: a thread that still runs when the process ends may use its pointer after the log was closed.
    alignas(CLog) static std::byte storage[sizeof(CLog)];
    // Destroys a half-made instance. Other exceptions reach the caller. They too leave no instance and a free lock, so
    // that the next call starts again.
    const auto destroy = [](CLog* log) { log->~CLog(); };
    try {
        std::unique_ptr<CLog, decltype(destroy)> made(::new (static_cast<void*>(storage)) CLog, destroy);
        made->Initialise();
        made->LogInfo(u"----------"_w, u"Log"_w);
        made->LogInfo(u"Log opened"_w, u"Log"_w);
        _instance = made.release();
    } catch (const log_exception& failure) {
        InitError = failure.ErrorCode;
    } catch (const std::bad_alloc&) {
        InitError = E_OUTOFMEMORY;
    }
    return _instance;
}

LONG CLog::GetInitError()
{
    return InitError;
}

// A status record has no level: the format of the log leaves its level field empty, so StatusTag is empty.
CLog::CLog() : ErrorTag(u"ERR"_w), WarnTag(u"WARN"_w), InfoTag(u"INFO"_w), DebugTag(u"DBUG"_w)
{
    InitError = 0;
    RegLogfilePath = CSettingsRegistry().getLogRegKey();
}

CLog::~CLog()
{
    Reset();
}

CLog::InstanceDeleter::~InstanceDeleter()
{
    // Statics of a program that loaded the library itself may end later than this, and threads may still log.
    const bool isIdle = logging::gate.Close(ClosingMilliseconds);
    InitError = logging::Closed;
    if (_instance != nullptr) {
        {
            const logging::WriterHold hold(_instance->LogMutex);
            if (hold.isObtained()) {
                constexpr const unsigned short* source = u"Log"_w;
                _instance->WriteLine(_instance->InfoTag, source, u"Log closing"_w);
                // One hyphen more than at the opening: the two lines differ.
                _instance->WriteLine(_instance->InfoTag, source, u"-----------"_w);
            }
        }
        if (isIdle)
            _instance->~CLog();
    }
    _instance = nullptr;
    OutputDebugStringW(platform::Wide(u"CLOG - Logging module successfully deleted.\n"_w));
}

}  // namespace utilities
