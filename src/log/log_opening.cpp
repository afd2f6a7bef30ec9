// Opening and closing the log: its file, the mutex of the file, the debug mask.
#include "errors/last_error.h"
#include "log/debug_mask.h"
#include "log/file_mutex.h"
#include "log/file_path.h"
#include "log/log_file.h"
#include "log/report.h"
#include "log/rollover.h"
#include "log/writer_hold.h"
#include "primitives/unique_handle.h"
#include "settings/tag_specification.h"
#include "system.h"
#include "tessmaru/log.h"
#include "tessmaru/settings.h"
#include "tessmaru/text.h"
#include "text/code_page.h"

#include <new>
#include <stdexcept>
#include <utility>

using namespace utility::literals;

namespace utilities {

namespace {

constexpr DWORD KeyWaitMilliseconds = 1000;

/// Takes over what an opening of the log has acquired, and releases it in the order file, mutex.
class Opened {
public:
    Opened(HANDLE& file, HANDLE& mutex, logging::Mask*& mask)
        : Mutex(std::exchange(mutex, nullptr)), File(std::exchange(file, nullptr))
    {
        mask = nullptr;
    }

private:
    UniqueHandle Mutex;
    UniqueHandle File;
};

}  // namespace

LONG CLog::Initialise()
{
    // Closed after the new opening. Until then the process keeps a handle of the mutex: without one it would be the
    // first opener again and move its own file aside.
    const Opened before(LogFile, LogMutex, DebugMask);
    try {
        LONG code = initLogFile();
        if (code >= 0)
            code = initDebugMask();
        if (code < 0)
            throw log_exception(code);
        OutputDebugStringW(platform::Wide(u"CLOG - Logging module successfully created\n"_w));
        logging::ReportLongDates();
        return code;
    } catch (const std::bad_alloc&) {
        Reset();
        throw log_exception(E_OUTOFMEMORY);
    } catch (...) {
        Reset();
        throw;
    }
}

LONG CLog::Reset()
{
    const Opened closed(LogFile, LogMutex, DebugMask);
    return 0;
}

LONG CLog::initLogFile()
{
    // Without a path, neither a mutex nor a file is touched.
    if (const LONG code = GetLogFileName(&LogFileName); code < 0) {
        logging::ReportFailure(u"the settings have no path of a log file in "_w, RegLogfilePath, code);
        return code;
    }
    int firstOpener = 0;
    if (const LONG code = initMutex(&firstOpener); code < 0) {
        logging::ReportFailure(u"the mutex does not open for "_w, LogFileName, code);
        return code;
    }
    // A later opener reaches the file only after the first one has rolled it over, opened it and released the mutex.
    const logging::WriterHold hold(LogMutex, firstOpener != 0);
    // The last writer of an earlier family may have been killed in the middle of a record. Set before anything can
    // fail, so that otherwise the next owner of the mutex checks the end.
    if (firstOpener != 0)
        logging::appender.DistrustEnd();
    if (firstOpener != 0)
        logging::MoveOldFileAside(LogFileName);
    UniqueHandle file = logging::OpenFile(LogFileName, SecurityDescriptor.getSecurityAttributes());
    if (!file) {
        const LONG code = LastErrorCode();
        logging::ReportFailure(u"the file does not open: "_w, LogFileName, code);
        return code;
    }
    logging::appender.RepairEnd(file.get());
    LogFile = file.release();
    return 0;
}

LONG CLog::initMutex(int* firstOpener)
{
    UniqueHandle mutex;
    bool isNew = false;
    if (const LONG code = logging::OpenFileMutex(LogFileName, mutex, isNew); code < 0)
        return code;
    LogMutex = mutex.release();
    *firstOpener = isNew ? 1 : 0;
    return 0;
}

LONG CLog::GetLogFileName(utility::wstring* name)
{
    // SetRegLogfilePath may have set an empty key, which means the release's own.
    if (RegLogfilePath.empty())
        RegLogfilePath = CSettingsRegistry().getLogRegKey();
    return logging::ReadFilePath(RegLogfilePath, *name);
}

LONG CLog::initDebugMask()
{
    std::string text;
    const LONG code = GetDebugMask(&text);
    if (code < 0)
        return code;
    // Never released: LogDebug reads it without a lock, perhaps in a thread that still runs when the process ends.
    static constinit logging::Mask mask;
    mask.reset();
    try {
        logging::ReadMask(text, mask);
    } catch (const std::invalid_argument&) {
        // The file is open already. The results of these two records do not matter to the opening.
        LogWarn(u"Debug mask contains invalid data - All bits forced to OFF!"_w, u"Log"_w);
        mask.reset();
    }
    DebugMask = &mask;
    if (DebugMask->any())
        LogInfo(u"Debug mask: %d bits ON"_w, u"Log"_w, static_cast<int>(DebugMask->count()));
    return code;
}

LONG CLog::GetDebugMask(std::string* mask)
{
    const utility::wstring text = CSettingsRegistry().getLogDebugMask();
    try {
        *mask = NarrowText(text);
    } catch (const std::bad_alloc&) {
        throw _com_error(E_OUTOFMEMORY);
    }
    return 0;
}

void CLog::SetRegLogfilePath(const unsigned short* key)
{
    // Calls in all processes share this mutex, of every account; the key itself belongs to this process.
    utility::CSecurityDescriptor everyone;
    const UniqueHandle mutex(
        CreateMutexW(everyone.getSecurityAttributes(), FALSE, platform::Wide(u"SetRegLogfilePath.Mutex"_w)));
    if (!mutex)
        return;
    const MutexHold hold(mutex.get(), KeyWaitMilliseconds);
    // Without the mutex the key does not change. The operation has no result that could report it.
    if (hold.isObtained())
        RegLogfilePath = key;
}

}  // namespace utilities
