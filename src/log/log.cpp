// The log's life: its one instance, opening and closing, and the calls that write records.
#include "tessmaru/log.h"

#include "log/codes.h"
#include "settings/tag_specification.h"
#include "system.h"
#include "tessmaru/settings.h"

#include <algorithm>
#include <memory>
#include <new>
#include <stdexcept>
#include <utility>

namespace utilities {

namespace {

constexpr std::size_t TextBufferUnits = 1024;
constexpr std::size_t MaxTextUnits = 1022;
constexpr DWORD KeyWaitMilliseconds = 1000;

class SectionLock {
public:
    explicit SectionLock(utility::CCriticalSection& section) : Section(section) { Section.Lock(); }
    SectionLock(const SectionLock&) = delete;
    SectionLock& operator=(const SectionLock&) = delete;
    ~SectionLock() { Section.Unlock(); }

private:
    utility::CCriticalSection& Section;
};

}  // namespace

// Constructed ahead of the library's entry call and of every static of a program into which the library is
// linked, so destroyed behind them: what those write still stands before the closing lines.
[[gnu::init_priority(201)]] utility::wstring CLog::RegLogfilePath;
[[gnu::init_priority(201)]] utility::CCriticalSection CLog::CSection;
[[gnu::init_priority(201)]] CLog::InstanceDeleter CLog::CLogDeleter;
CLog* CLog::_instance = nullptr;
std::atomic<LONG> CLog::InitError{0};

CLog::log_exception::~log_exception() = default;

/// What an opening of the log holds. Taken from the instance, it is closed behind the next opening: the named
/// mutex never goes in between, so the process does not roll its own file over.
class CLog::Opened {
public:
    explicit Opened(CLog& log)
        : File(std::exchange(log.LogFile, nullptr)), Mutex(std::exchange(log.LogMutex, nullptr)),
          Mask(std::exchange(log.DebugMask, nullptr))
    {
    }
    Opened(const Opened&) = delete;
    Opened& operator=(const Opened&) = delete;
    ~Opened()
    {
        if (File != nullptr)
            CloseHandle(File);
        if (Mutex != nullptr)
            CloseHandle(Mutex);
    }

private:
    HANDLE File;
    HANDLE Mutex;
    std::unique_ptr<std::bitset<64>> Mask;
};

CLog* CLog::GetInstance()
{
    if (InitError == log_codes::Closed)
        return nullptr;
    const SectionLock lock(CSection);
    if (_instance == nullptr)
        _instance = Create();
    return _instance;
}

/// An open log, or null with the reason in InitError.
CLog* CLog::Create()
{
    try {
        std::unique_ptr<CLog> made(new CLog);
        made->Initialise();
        made->LogInfo(u"----------"_w, u"Log"_w);
        made->LogInfo(u"Log opened"_w, u"Log"_w);
        return made.release();
    } catch (const log_exception& failure) {
        InitError = failure.ErrorCode;
    } catch (const std::bad_alloc&) {
        InitError = E_OUTOFMEMORY;
    }
    return nullptr;
}

LONG CLog::GetInitError()
{
    return InitError;
}

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
    if (_instance != nullptr) {
        _instance->LogInfo(u"Log closing"_w, u"Log"_w);
        _instance->LogInfo(u"-----------"_w, u"Log"_w);
        delete _instance;
    }
    _instance = nullptr;
    // A program that loaded the library by hand may still ask, from a static of its own: the log is closed for good.
    InitError = log_codes::Closed;
    OutputDebugStringW(platform::Wide(u"CLOG - Logging module successfully deleted.\n"_w));
}

LONG CLog::Initialise()
{
    const Opened before(*this);
    try {
        LONG code = initLogFile();
        if (code >= 0)
            code = initDebugMask();
        if (code < 0)
            throw log_exception(code);
        OutputDebugStringW(platform::Wide(u"CLOG - Logging module successfully created\n"_w));
        return code;
    } catch (...) {
        Reset();
        throw;
    }
}

LONG CLog::Reset()
{
    const Opened closed(*this);
    return 0;
}

void CLog::SetRegLogfilePath(const unsigned short* key)
{
    utility::CSecurityDescriptor everyone;
    const HANDLE mutex =
        CreateMutexW(everyone.getSecurityAttributes(), FALSE, platform::Wide(u"SetRegLogfilePath.Mutex"_w));
    if (mutex == nullptr)
        return;
    const DWORD waited = WaitForSingleObject(mutex, KeyWaitMilliseconds);
    try {
        if (waited == WAIT_OBJECT_0 || waited == WAIT_ABANDONED)
            RegLogfilePath = key;
    } catch (...) {
        ReleaseMutex(mutex);
        CloseHandle(mutex);
        throw;
    }
    ReleaseMutex(mutex);
    CloseHandle(mutex);
}

LONG CLog::Format(const utility::wstring& tag, const unsigned short* format, const unsigned short* source,
                  va_list arguments)
{
    unsigned short text[TextBufferUnits];
    va_list again;
    va_copy(again, arguments);
    const int units = _vsnwprintf(platform::Wide(text), MaxTextUnits, platform::Wide(format), arguments);
    if (units >= 0) {
        text[units] = 0;
    } else {
        // Too long, or broken off. Zeros show where: only here, as clearing the buffer is dear for a short text.
        std::fill_n(text, TextBufferUnits, u'\0');
        _vsnwprintf(platform::Wide(text), MaxTextUnits, platform::Wide(format), again);
    }
    va_end(again);
    return Log(tag, source, text);
}

LONG CLog::LogError(const unsigned short* format, const unsigned short* source, ...)
{
    va_list arguments;
    va_start(arguments, source);
    const LONG code = Format(ErrorTag, format, source, arguments);
    va_end(arguments);
    return code;
}

LONG CLog::LogWarn(const unsigned short* format, const unsigned short* source, ...)
{
    va_list arguments;
    va_start(arguments, source);
    const LONG code = Format(WarnTag, format, source, arguments);
    va_end(arguments);
    return code;
}

LONG CLog::LogInfo(const unsigned short* format, const unsigned short* source, ...)
{
    va_list arguments;
    va_start(arguments, source);
    const LONG code = Format(InfoTag, format, source, arguments);
    va_end(arguments);
    return code;
}

LONG CLog::LogStatus(const unsigned short* format, const unsigned short* source, ...)
{
    va_list arguments;
    va_start(arguments, source);
    const LONG code = Format(StatusTag, format, source, arguments);
    va_end(arguments);
    return code;
}

/// Comes before any formatting and stands in front of every debug record, so it is inlined here.
inline bool CLog::DebugBit(LONG bit) const
{
    if (DebugMask == nullptr)
        return false;
    const auto position = static_cast<ULONG>(bit);
    if (position >= DebugMask->size())
        RejectBit();
    return (*DebugMask)[position];
}

void CLog::RejectBit()
{
    throw std::out_of_range("invalid bitset<N> position");
}

LONG CLog::LogDebug(LONG bit, const unsigned short* format, const unsigned short* source, ...)
{
    if (!DebugBit(bit))
        return 0;
    va_list arguments;
    va_start(arguments, source);
    const LONG code = Format(DebugTag, format, source, arguments);
    va_end(arguments);
    return code;
}

}  // namespace utilities
