// The calls that write records: the text is formatted first, then the record is written under the mutex of the file.
#include "tessmaru/log.h"

#include "errors/last_error.h"
#include "log/call_gate.h"
#include "log/codes.h"
#include "log/debug_mask.h"
#include "log/record.h"
#include "log/record_text.h"
#include "log/time_stamp.h"
#include "log/writer_hold.h"
#include "settings/tag_specification.h"

#include <cstdarg>

namespace utilities {

namespace {

// What a process with one log keeps besides its handles and the appender. LogMutex guards it.
constinit logging::TimeStamp stamp;

}  // namespace

LONG CLog::LogError(const unsigned short* format, const unsigned short* source, ...)
{
    va_list arguments;
    va_start(arguments, source);
    const logging::RecordText text(format, arguments);
    va_end(arguments);
    return Log(ErrorTag, source, text.view());
}

LONG CLog::LogWarn(const unsigned short* format, const unsigned short* source, ...)
{
    va_list arguments;
    va_start(arguments, source);
    const logging::RecordText text(format, arguments);
    va_end(arguments);
    return Log(WarnTag, source, text.view());
}

LONG CLog::LogInfo(const unsigned short* format, const unsigned short* source, ...)
{
    va_list arguments;
    va_start(arguments, source);
    const logging::RecordText text(format, arguments);
    va_end(arguments);
    return Log(InfoTag, source, text.view());
}

LONG CLog::LogStatus(const unsigned short* format, const unsigned short* source, ...)
{
    va_list arguments;
    va_start(arguments, source);
    const logging::RecordText text(format, arguments);
    va_end(arguments);
    return Log(StatusTag, source, text.view());
}

LONG CLog::LogDebug(LONG bit, const unsigned short* format, const unsigned short* source, ...)
{
    // A log that was closed for good has no mask. The caller may have kept its pointer.
    if (DebugMask == nullptr)
        return InitError == logging::Closed ? logging::Closed : 0;
    if (!logging::IsOn(DebugMask, bit))
        return 0;
    va_list arguments;
    va_start(arguments, source);
    // Not inlined, because most debug records are filtered out and should not pay for the room of a text on the stack.
    const auto write = [ this, format, source, &arguments ]() __attribute__((noinline))
    {
        const logging::RecordText text(format, arguments);
        return Log(DebugTag, source, text.view());
    };
    const LONG code = write();
    va_end(arguments);
    return code;
}

// Flattened, because the processor mispredicts each return after a system call: 5 ns for each level of calls.
[[gnu::flatten]] LONG CLog::Log(std::basic_string_view<unsigned short> tag,
                                std::basic_string_view<unsigned short> source,
                                std::basic_string_view<unsigned short> text)
{
    const logging::Call call;
    if (!call.isAdmitted())
        return logging::Closed;
    // The mutex belongs to one thread of one process, so it keeps apart the threads of this process too.
    const logging::WriterHold hold(LogMutex);
    if (hold.result() == WAIT_TIMEOUT)
        return logging::NotObtained;
    if (!hold.isObtained())
        return LastErrorCode();
    return WriteLine(tag, source, text);
}

LONG CLog::WriteLine(std::basic_string_view<unsigned short> tag, std::basic_string_view<unsigned short> source,
                     std::basic_string_view<unsigned short> text)
{
    // Without a file nothing is written, and that is not a failure.
    if (LogFile == nullptr || LogFile == INVALID_HANDLE_VALUE)
        return 0;
    // Nothing is written before the whole line exists, so an exception leaves no part of it in the file.
    try {
        GetDateTime();
        const auto checkFile = [this] {
            platform::RestoreMutex(LogMutex);
            return logging::appender.CheckFile(LogFile, LogFileName, SecurityDescriptor.getSecurityAttributes());
        };
        if (stamp.isNewSecond() || logging::appender.IsAway()) {
            if (const LONG code = checkFile(); code < 0)
                return code;
        }
        const logging::Record record(DateTime, GetCurrentProcessId(), GetCurrentThreadId(), tag, source, text);
        const LONG code = logging::appender.Append(LogFile, record.line());
        // The program has closed the file, so nothing was written. It is not left so until the next second.
        if (logging::appender.IsAway() && checkFile() == 0)
            return logging::appender.Append(LogFile, record.line());
        return code;
    } catch (const log_exception& failure) {
        return failure.ErrorCode;
    } catch (const std::exception&) {
        return logging::RecordFailed;
    }
}

const utility::wstring& CLog::GetDateTime()
{
    if (const LONG code = stamp.Update(DateTime); code < 0)
        throw log_exception(code);
    return DateTime;
}

}  // namespace utilities
