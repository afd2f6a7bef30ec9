// The process-wide log: one file that all processes of the suite share.
#pragma once

#include "tessmaru/platform.h"
#include "tessmaru/primitives.h"
#include "tessmaru/text.h"

#include <atomic>
#include <bitset>
#include <exception>
#include <string>
#include <string_view>

namespace utilities {

/// The log of this process. Every process whose settings give the same file path writes to that file, record
/// by record, under a mutex of the machine. The process that opens the file while no other has it open first
/// moves the old file aside, to "Previous " and its name in the same directory.
///
/// A record is one line: time stamp, process id, thread id, level, source, text, with " | " between them.
/// It is written whole or not at all, before the call returns.
///
/// Any thread may call any operation. The instance belongs to the library, which closes the log when it is
/// unloaded or the program ends; no thread may be inside a call then.
///
/// The format language is that of the platform's wide `printf`: `%s` takes 16-bit text, `%S` and `%hs` narrow
/// text, `%ld` and `%lu` 32 bits, `%I64d` 64 bits. A text is cut at 1022 units. Format and source have to
/// point at text, which may be empty.
///
/// @code
///     using namespace utility::literals;
///     utilities::CLog* log = utilities::CLog::GetInstance();
///     if (log == nullptr)
///         return utilities::CLog::GetInitError();
///     log->LogInfo(u"%d sites read in %u ms"_w, u"Import"_w, sites, elapsed);
/// @endcode
class TESSMARU_API CLog {
public:
    /// A failed opening of the log, with its code. Gives no message of its own.
    class TESSMARU_API log_exception : public std::exception {
    public:
        explicit log_exception(LONG code) : ErrorCode(code) {}
        log_exception(const log_exception&) = default;
        log_exception& operator=(const log_exception&) = default;
        ~log_exception() override;

        LONG ErrorCode;
    };

    CLog(const CLog&) = delete;
    CLog& operator=(const CLog&) = delete;
    virtual ~CLog();

    /// The process's log, opened by the first call. Null if it cannot be opened: GetInitError tells why, and
    /// the next call tries again. The first call may wait while another process opens the same log.
    /// @throws _com_error if the platform gives no security attributes or the debug mask cannot be converted;
    ///         the next call starts again.
    static CLog* GetInstance();

    /// 0, or the code of the last failed GetInstance. 0x80070002: no settings store, no key, or no or an empty
    /// "FilePath"; 0x80070003: missing directory; 0x80070005: not allowed; 0x800700EA: a path of more than 512
    /// units; 0x8007000E: out of memory; 0x80040304: the library has closed the log for good, and no call opens it
    /// any more; others by the rule of HRESULT_FROM_WIN32.
    static LONG GetInitError();

    /// Names the settings key, below HKEY_LOCAL_MACHINE, whose "FilePath" a further Initialise opens;
    /// an empty one stands for the release's own. The construction of an instance sets the release's own key,
    /// so a key given before the first GetInstance has no effect. Must not run while a GetInstance opens the
    /// log. A wait of more than one second for another process's call leaves the key as it was.
    /// @throws _com_error if the platform gives no security attributes; std::bad_alloc.
    static void SetRegLogfilePath(const unsigned short* key);

    /// Opens the log anew with the current key, then closes what was open before. No other thread may be in a
    /// call of the log. @return 0
    /// @throws log_exception with the code; the instance is closed then: its calls write nothing.
    LONG Initialise();

    /// Writes a record. @return 0: it stands in the file whole. 0x80040302: other writers kept the file for
    /// one second; any other code by the rule of HRESULT_FROM_WIN32, 0x80070070 for a full disk; in every case
    /// nothing of the record was written.
    LONG LogError(const unsigned short* format, const unsigned short* source, ...);
    LONG LogWarn(const unsigned short* format, const unsigned short* source, ...);
    LONG LogInfo(const unsigned short* format, const unsigned short* source, ...);
    LONG LogStatus(const unsigned short* format, const unsigned short* source, ...);

    /// Writes a record if the bit is on in the debug mask, which is read from the settings when the log is
    /// opened. A bit that is off costs a test, before any formatting.
    /// @return 0 for a record that was filtered out, else as LogInfo.
    /// @throws std::out_of_range for a bit below 0 or above 63.
    LONG LogDebug(LONG bit, const unsigned short* format, const unsigned short* source, ...);

protected:
    CLog();

    LONG Reset();
    LONG initLogFile();
    LONG initMutex(int* firstOpener);
    LONG initDebugMask();

private:
    /// Its destructor closes the log when the library is unloaded.
    struct InstanceDeleter {
        ~InstanceDeleter();
    };

    LONG Log(std::basic_string_view<unsigned short> tag, std::basic_string_view<unsigned short> source,
             std::basic_string_view<unsigned short> text);
    LONG WriteLine(std::basic_string_view<unsigned short> tag, std::basic_string_view<unsigned short> source,
                   std::basic_string_view<unsigned short> text);
    const utility::wstring& GetDateTime();
    LONG GetLogFileName(utility::wstring* name);
    LONG GetDebugMask(std::string* mask);

    const utility::wstring ErrorTag;
    const utility::wstring WarnTag;
    const utility::wstring InfoTag;
    const utility::wstring StatusTag;  // empty: the level field of a status record is blank
    const utility::wstring DebugTag;
    utility::wstring LogFileName;
    utility::wstring DateTime;
    HANDLE LogFile = nullptr;
    HANDLE LogMutex = nullptr;
    std::bitset<64>* DebugMask = nullptr;
    utility::CSecurityDescriptor SecurityDescriptor;

    static CLog* _instance;
    static std::atomic<LONG> InitError;
    static utility::CCriticalSection CSection;
    static utility::wstring RegLogfilePath;
    static InstanceDeleter CLogDeleter;
};

}  // namespace utilities

namespace utility {

/// Writes the list of all modules of this process to a log, as information of the source "Lib": between a first and a
/// last line, for each its handle, base address, size in bytes and file. What fails is told in the log, and nowhere
/// else; a null log gets nothing.
///
///     Module dump of process 0x00001c2a follows
///     Module: 0x55d3a1c00000. Base: 0x55d3a1c00000. Size: 0x00011000. Name: '/usr/bin/veltrixd'
///     Module dump of process 0x00001c2a complete
TESSMARU_API void LogProcessModules(utilities::CLog* log);

}  // namespace utility
