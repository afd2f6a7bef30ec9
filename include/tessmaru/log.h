// The process-wide log: one file that all processes of the suite share. The file is UTF-16, low byte first,
// without a byte-order mark.
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

/// The log of this process. Every process whose settings name the same file writes to that file, record by record,
/// under a mutex of the machine. A process that opens the file while no other process has it open first moves the old
/// file aside: in the same directory, under "Previous " and its name. On Linux the log has to be a regular file with
/// one link. If an administrator moves or removes it, the log opens its path again within one second.
///
/// A record is one line: time stamp, process id, thread id, level, source, text, with " | " between them. It is written
/// whole or not at all, before the call returns.
///
/// Any thread may call any operation. The library owns the instance and closes the log when the library is unloaded or
/// the program ends. Threads may still log when the program ends: calls inside finish, and later ones get 0x80040304,
/// also through a pointer that was kept. No thread may be inside a call when the library is unloaded by hand.
///
/// The format language is that of the platform's wide `printf`: `%s` takes 16-bit text, `%S` and `%hs` take narrow
/// text, `%ld` and `%lu` are 32 bits, `%I64d` is 64 bits. A text is cut at 1022 units. Format and source must point to
/// text, which may be empty.
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
    /// A failed opening of the log. It has a code and no message.
    class TESSMARU_API log_exception : public std::exception {
    public:
        explicit log_exception(LONG code) : ErrorCode(code) {}
        log_exception(const log_exception&) = default;
        log_exception& operator=(const log_exception&) = default;
        ~log_exception() override;

        LONG ErrorCode;  ///< negative; the codes are those of GetInitError
    };

    CLog(const CLog&) = delete;
    CLog& operator=(const CLog&) = delete;
    virtual ~CLog();

    /// The process's log, opened by the first call. The first call may wait, without limit, while another process opens
    /// or holds the same log. Debug output tells which file, folder or key a failed opening is about.
    /// @return the log, which the caller must not delete; or null if it cannot be opened. GetInitError has the reason
    ///         then, and the next call tries again.
    /// @throws _com_error if the security attributes cannot be made or the debug mask cannot be converted; the next
    ///         call starts again.
    static CLog* GetInstance();

    /// Why the last GetInstance failed: 0 if it did not fail, else a code.
    ///
    ///     0x80070002  no settings store, no key, or no "FilePath" or an empty one
    ///     0x80070003  a directory of the path is missing
    ///     0x80070005  access denied
    ///     0x80070070  the disk is full, or a file size limit is reached
    ///     0x800700EA  the path has more than 512 units
    ///     0x800705B4  another process has kept the file of the mutex locked for 5 seconds
    ///     0x80070781  the path is a symbolic link; 0x80070476: the file has more than one link
    ///     0x8007000E  out of memory
    ///     0x80040304  the library has closed the log for good: no call opens it any more
    ///     others      a system error by the rule of HRESULT_FROM_WIN32
    static LONG GetInitError();

    /// Sets the settings key whose "FilePath" a further Initialise opens. Must not run while a GetInstance opens the
    /// log.
    ///
    /// The construction of an instance sets the release's own key, so a key given before the first GetInstance has no
    /// effect. The key does not change if another process is in this call for more than one second.
    /// @param key a path below HKEY_LOCAL_MACHINE; empty: the release's own key.
    /// @throws _com_error if the security attributes cannot be made; std::bad_alloc.
    static void SetRegLogfilePath(const unsigned short* key);

    /// Opens the log again with the current key, then closes what was open before. No other thread may be in a call of
    /// the log.
    /// @return 0
    /// @throws log_exception, also for lack of memory; _com_error as GetInstance. The instance is closed then, and its
    ///         calls write nothing.
    LONG Initialise();

    /// Writes a record of the level ERR, WARN or INFO; a record of LogStatus has a blank level.
    /// @param source the part of the program that logs; it is right-aligned in 12 columns.
    /// @return 0 if the record is in the file, else a code, and nothing of the record is in the file: 0x80040302 if
    ///         other writers kept the file for one second, 0x80040303 for an exception while the record was made,
    ///         0x80070070 for a full disk, 0x80040304 after the log was closed for good, others by the rule of
    ///         HRESULT_FROM_WIN32.
    LONG LogError(const unsigned short* format, const unsigned short* source, ...);
    LONG LogWarn(const unsigned short* format, const unsigned short* source, ...);
    LONG LogInfo(const unsigned short* format, const unsigned short* source, ...);
    LONG LogStatus(const unsigned short* format, const unsigned short* source, ...);

    /// Writes a record of the level DBUG if the bit is on in the debug mask, which is read from the settings when the
    /// log is opened. The caller gives the bits their meaning. A bit that is off costs a test, before any formatting.
    /// @return 0 if the bit is off, else as LogInfo.
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

/// Writes the list of all modules of this process to a log, as INFO records of the source "Lib": for each module its
/// handle, base address, size in bytes and file, between a first and a last line. A failure is reported in the log
/// only. For a null log nothing is done. Any thread may call it.
///
///     Module dump of process 0x00001c2a follows
///     Module: 0x55d3a1c00000. Base: 0x55d3a1c00000. Size: 0x00011000. Name: '/usr/bin/veltrixd'
///     Module dump of process 0x00001c2a complete
TESSMARU_API void LogProcessModules(utilities::CLog* log);

}  // namespace utility
