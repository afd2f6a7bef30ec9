// The contract of the platform: the operations that the library uses, in addition to those that platform.h exports.
//
// On Windows they are the system's own. Here each keeps its published contract as far as the library relies on it:
// results, GetLastError codes, limits and ownership. For all of them:
//   - No operation throws. Lack of memory is ERROR_OUTOFMEMORY.
//   - A failed operation sets the thread's last error, unless its comment says that it returns the error.
//   - Text is 16-bit units with a terminating zero unit. A path may use backslashes or slashes, and a drive letter.
//   - Any thread may call any operation. One handle or key must not be closed while another thread uses it.
//   - Handles are closed on `exec`; a child of `fork` has its own handles to the same objects.
#pragma once

#include "tessmaru/platform.h"

#include <cstdarg>
#include <typeinfo>

#define WINAPI

namespace platform {

/// The library's 16-bit text as the platform's wide text.
inline LPCWSTR Wide(const unsigned short* text)
{
    return text;
}
inline LPWSTR Wide(unsigned short* text)
{
    return text;
}

/// Milliseconds of wall time since the process started, in the low 32 bits. The child of a `fork` continues its
/// parent's count.
LONG Clock();

}  // namespace platform

// --- Registry ---
//
// Read only. The store is one text file; a change shows at the next opening of a key, and through an open key at its
// next read. No call mixes two states of the file. These operations return their result, 0 or a system error; the last
// error is not part of their contract.

using LSTATUS = LONG;
inline const HKEY HKEY_LOCAL_MACHINE = reinterpret_cast<HKEY>(std::uintptr_t{0x80000002});
inline const HKEY HKEY_USERS = reinterpret_cast<HKEY>(std::uintptr_t{0x80000003});
constexpr DWORD KEY_QUERY_VALUE = 1;
constexpr DWORD KEY_READ = 0x20019;
constexpr DWORD REG_NONE = 0;
constexpr DWORD REG_SZ = 1;
constexpr DWORD REG_BINARY = 3;
constexpr DWORD REG_DWORD = 4;

/// Opens the key at `path` below `key`, an open key or a predefined one. Options and access are ignored. The caller
/// must close `*opened` with RegCloseKey; it is null after a failure. An empty or null path opens `key` again.
/// @return 0, ERROR_FILE_NOT_FOUND (no such key, or no store), ERROR_KEY_DELETED (`key` was removed since it was
///         opened), ERROR_INVALID_HANDLE, ERROR_BAD_PATHNAME (a leading backslash), ERROR_INVALID_PARAMETER, or why the
///         store cannot be read: ERROR_ACCESS_DENIED, ERROR_NOT_SUPPORTED (larger than 32 MiB), another system error.
///         Without a free descriptor or memory, or while the file keeps changing, the content that was read last stays
///         in force; these are errors only if there is none.
LSTATUS RegOpenKeyExW(HKEY key, LPCWSTR path, DWORD options, DWORD access, HKEY* opened);

/// Reads a value; a null or empty name means the unnamed one. `type` and `data` may be null. `bytes` holds the size of
/// `data` and receives the size of the value, also where the value does not fit; without `data` that of a missing value
/// is 0. Data are not terminated if the value is not.
/// @return 0, ERROR_FILE_NOT_FOUND (no such value, or no store), ERROR_KEY_DELETED (the key was removed since it was
///         opened), ERROR_MORE_DATA (`data` is unchanged), ERROR_INVALID_HANDLE, ERROR_INVALID_PARAMETER (a reserved
///         pointer, or `data` without `bytes`), or why the store cannot be read, as for RegOpenKeyExW
LSTATUS RegQueryValueExW(HKEY key, LPCWSTR name, DWORD* reserved, DWORD* type, BYTE* data, DWORD* bytes);

/// Closes a key. A predefined key stays open. @return 0, or ERROR_INVALID_HANDLE
LSTATUS RegCloseKey(HKEY key);

// --- Access rights and limits ---

constexpr DWORD GENERIC_READ = 0x80000000;
constexpr DWORD GENERIC_WRITE = 0x40000000;
constexpr DWORD GENERIC_ALL = 0x10000000;
constexpr DWORD WRITE_DAC = 0x40000;
constexpr DWORD WRITE_OWNER = 0x80000;
constexpr DWORD MAX_PATH = 260;

// --- Files that several processes append to ---
//
// These are the platform's own operations, not Win32's: a log needs few, and each does in one step what would take
// several calls.

namespace platform {

/// Opens the file at `path` for appending, or creates it. It has to be a regular file with one link, and the last
/// component of the path must not be a symbolic link; anything else stays untouched. Attributes with an access list set
/// the mode bits of a new file, whatever the umask. While the file is open, MoveFileAside fails for it in every
/// process.
/// @return a handle that the caller must close with CloseHandle, or null with ERROR_PATH_NOT_FOUND (no folder, or an
///         unmapped drive), ERROR_ACCESS_DENIED (also for what is no regular file), ERROR_CANT_RESOLVE_FILENAME (a
///         symbolic link), ERROR_TOO_MANY_LINKS, ERROR_INVALID_NAME, ERROR_TIMEOUT (another process keeps it locked for
///         more than a second), another system error
HANDLE OpenForAppending(LPCWSTR path, SECURITY_ATTRIBUTES* attributes);

enum class AppendResult {
    whole,    ///< all bytes are in the file, one after another
    nothing,  ///< none of them is
    part,     ///< the first of them are: another process has the file open, or they could not be removed
};

/// Puts bytes at the end of a file in one step, wherever other processes have moved the end. Bytes of several processes
/// never mix. A failure sets the last error: ERROR_DISK_FULL (also at the process's file size limit),
/// ERROR_INVALID_HANDLE, another system error.
AppendResult AppendToFile(HANDLE file, LPCVOID data, DWORD bytes);

/// Copies the last bytes of a file, or all of a shorter one. @param size receives the size of the whole file
/// @return false with the last error set
bool ReadEndOfFile(HANDLE file, void* buffer, DWORD bytes, ULONGLONG* size);

enum class FileState {
    current,  ///< the handle refers to the file at the path
    moved,    ///< the file at the path is another one, or there is none
    lost,     ///< the program has closed the descriptor of the handle, which must not be used any more
};

/// Compares an open file with the one at the path from which it was opened.
FileState StateOfFile(HANDLE file, LPCWSTR path);

/// Renames a regular file that is not empty and that no process has open. An earlier file at `to` is replaced in the
/// same step; if that fails, both stay.
/// @return false with ERROR_SHARING_VIOLATION (a process has it open), ERROR_FILE_NOT_FOUND (none, or an empty one), or
///         another system error
bool MoveFileAside(LPCWSTR from, LPCWSTR to);

/// Keeps a named mutex that the calling thread owns valid after the program has closed all descriptors. To be called
/// now and then: until then, other processes take this one for dead.
void RestoreMutex(HANDLE mutex);

/// Makes the release of a named mutex that the calling thread owns look like the death of its owner: the next wait, in
/// any process, returns WAIT_ABANDONED. For an owner that leaves something incomplete.
void AbandonAtRelease(HANDLE mutex);

}  // namespace platform

// --- Critical sections ---
//
// Locks of one process, recursive, owned by a thread. They cannot fail. A section that was locked before a `fork` is
// free in the child.

/// Makes `*section` a free section. Must not be called while a thread uses it.
void InitializeCriticalSection(CRITICAL_SECTION* section);

/// Waits for the section without limit, and owns it once more.
void EnterCriticalSection(CRITICAL_SECTION* section);

/// Gives up one ownership. Does nothing on a thread that does not own the section.
void LeaveCriticalSection(CRITICAL_SECTION* section);

/// Ends the use of a section. It owns nothing that would have to be released.
void DeleteCriticalSection(CRITICAL_SECTION* section);

// --- Security records, in their published layouts ---

struct SID_IDENTIFIER_AUTHORITY {
    BYTE Value[6];
};

struct SID {
    BYTE Revision;
    BYTE SubAuthorityCount;
    SID_IDENTIFIER_AUTHORITY IdentifierAuthority;
    DWORD SubAuthority[1];
};

struct ACE_HEADER {
    BYTE AceType;
    BYTE AceFlags;
    WORD AceSize;
};

struct ACCESS_ALLOWED_ACE {
    ACE_HEADER Header;
    DWORD Mask;
    DWORD SidStart;
};
using ACCESS_DENIED_ACE = ACCESS_ALLOWED_ACE;

struct SECURITY_DESCRIPTOR {
    BYTE Revision;
    BYTE Sbz1;
    WORD Control;
    PSID Owner;
    PSID Group;
    ACL* Sacl;
    ACL* Dacl;
};

constexpr BYTE ACCESS_ALLOWED_ACE_TYPE = 0;
constexpr BYTE ACCESS_DENIED_ACE_TYPE = 1;
constexpr WORD SE_DACL_PRESENT = 4;
constexpr WORD SE_DACL_DEFAULTED = 8;
constexpr DWORD ACL_REVISION = 2;
constexpr DWORD SECURITY_DESCRIPTOR_REVISION = 1;
constexpr DWORD HEAP_ZERO_MEMORY = 8;

/// Makes a SID with the first `count` of the sub-authorities, at most 8. The caller must release it with FreeSid.
/// @return FALSE with ERROR_INVALID_PARAMETER, ERROR_INVALID_SID (too many)
BOOL AllocateAndInitializeSid(SID_IDENTIFIER_AUTHORITY* authority, BYTE count, DWORD sub0, DWORD sub1, DWORD sub2,
                              DWORD sub3, DWORD sub4, DWORD sub5, DWORD sub6, DWORD sub7, PSID* sid);

/// The size in bytes of a valid SID.
DWORD GetLengthSid(PSID sid);

/// Releases a SID of AllocateAndInitializeSid. @return null
PVOID FreeSid(PSID sid);

/// Makes an empty access list in `bytes` of the caller's memory, at most 65,535.
/// @return FALSE with ERROR_INSUFFICIENT_BUFFER, ERROR_INVALID_PARAMETER
BOOL InitializeAcl(ACL* acl, DWORD bytes, DWORD revision);

/// Appends an entry, with a copy of the SID, to an access list.
/// @return FALSE with ERROR_ALLOTTED_SPACE_EXCEEDED (no room), ERROR_INVALID_ACL, ERROR_INVALID_SID,
///         ERROR_REVISION_MISMATCH; the list is unchanged
BOOL AddAccessDeniedAce(ACL* acl, DWORD revision, DWORD mask, PSID sid);
BOOL AddAccessAllowedAce(ACL* acl, DWORD revision, DWORD mask, PSID sid);

/// Makes an empty descriptor. @return FALSE with ERROR_UNKNOWN_REVISION, ERROR_INVALID_PARAMETER
BOOL InitializeSecurityDescriptor(PSECURITY_DESCRIPTOR descriptor, DWORD revision);

/// Sets the access list of a descriptor, which refers to the caller's list. Present and null: everybody may do
/// everything.
/// @return FALSE with ERROR_UNKNOWN_REVISION, ERROR_INVALID_PARAMETER
BOOL SetSecurityDescriptorDacl(PSECURITY_DESCRIPTOR descriptor, BOOL present, ACL* dacl, BOOL defaulted);

/// The heap of HeapAlloc and HeapFree. It is not to be closed.
HANDLE GetProcessHeap();

/// Memory that the caller must release with HeapFree; zeroed with HEAP_ZERO_MEMORY. @return null, without a last error
LPVOID HeapAlloc(HANDLE heap, DWORD flags, SIZE_T bytes);

/// Releases memory of HeapAlloc; null does nothing. @return TRUE
BOOL HeapFree(HANDLE heap, DWORD flags, LPVOID block);

// --- Time, identity, debug output ---

struct SYSTEMTIME {
    WORD wYear;
    WORD wMonth;
    WORD wDayOfWeek;
    WORD wDay;
    WORD wHour;
    WORD wMinute;
    WORD wSecond;
    WORD wMilliseconds;
};

using LCID = DWORD;
constexpr LCID LOCALE_SYSTEM_DEFAULT = 0x800;

/// The local time. A change of the time zone shows within a minute. All fields are zero if the clock shows a time that
/// has no date.
void GetLocalTime(SYSTEMTIME* time);

/// The date as text: by `picture`, or for null in the machine's short form. A null `time` means now. The locale is
/// ignored. `size` and the result count units with the terminator; size 0 returns the size that is needed.
/// @return 0 with ERROR_INSUFFICIENT_BUFFER, ERROR_INVALID_PARAMETER (also for what is no date), ERROR_INVALID_FLAGS
int GetDateFormatW(LCID locale, DWORD flags, const SYSTEMTIME* time, LPCWSTR picture, LPWSTR buffer, int size);

/// The time as text, as GetDateFormatW does with a date. A null picture means "HH:mm:ss".
int GetTimeFormatW(LCID locale, DWORD flags, const SYSTEMTIME* time, LPCWSTR picture, LPWSTR buffer, int size);

/// The id of this process, in a child of `fork` its own.
DWORD GetCurrentProcessId();

/// The kernel's id of the calling thread.
DWORD GetCurrentThreadId();

/// Writes text to standard error if VELTRIX_DEBUG_OUTPUT is set. Null and a failed write are ignored.
void OutputDebugStringW(LPCWSTR text);

// --- Text conversion ---

constexpr UINT CP_ACP = 0;
constexpr UINT CP_UTF8 = 65001;
constexpr DWORD MB_ERR_INVALID_CHARS = 8;
constexpr DWORD WC_NO_BEST_FIT_CHARS = 0x400;

/// Converts wide text to a code page. Length -1 means up to the terminator, and includes it; size 0 returns the size
/// that is needed. A character that the page lacks becomes a similar one where the platform's published tables have
/// one (in page 1252 U+0141 becomes "L"), but not with WC_NO_BEST_FIT_CHARS. Any other becomes `*defaultChar` ('?' for
/// null) and sets `*usedDefault`; for UTF-8 both must be null, and an unpaired surrogate becomes U+FFFD.
/// @return the bytes written, or 0 with ERROR_INSUFFICIENT_BUFFER, ERROR_INVALID_FLAGS, ERROR_INVALID_PARAMETER (also
/// for
///         an unknown code page)
int WideCharToMultiByte(UINT codePage, DWORD flags, LPCWSTR wide, int wideUnits, LPSTR narrow, int narrowBytes,
                        LPCSTR defaultChar, BOOL* usedDefault);

/// Converts text of a code page to wide text; lengths as above, in units. Malformed bytes become a replacement
/// character, or fail with MB_ERR_INVALID_CHARS. A byte without a character becomes the control or the private unit
/// that the platform's published tables give it; a private one of a single byte fails with MB_ERR_INVALID_CHARS.
/// @return the units written, or 0 with ERROR_INSUFFICIENT_BUFFER, ERROR_NO_UNICODE_TRANSLATION, ERROR_INVALID_FLAGS,
///         ERROR_INVALID_PARAMETER
int MultiByteToWideChar(UINT codePage, DWORD flags, LPCSTR narrow, int narrowBytes, LPWSTR wide, int wideUnits);

// --- Strings of a module, messages, counted formatting ---

/// Copies a row of a module's string table (null: the program's), cut to `size` units with its terminator.
/// @return the units copied without the terminator, or 0 with ERROR_RESOURCE_DATA_NOT_FOUND (the module has no
/// resources),
///         ERROR_RESOURCE_NAME_NOT_FOUND (no such row), ERROR_INVALID_PARAMETER
int LoadStringW(HINSTANCE module, UINT row, LPWSTR buffer, int size);

constexpr DWORD FORMAT_MESSAGE_ALLOCATE_BUFFER = 0x100;
constexpr DWORD FORMAT_MESSAGE_IGNORE_INSERTS = 0x200;
constexpr DWORD FORMAT_MESSAGE_FROM_STRING = 0x400;
constexpr DWORD FORMAT_MESSAGE_FROM_HMODULE = 0x800;
constexpr DWORD FORMAT_MESSAGE_FROM_SYSTEM = 0x1000;
constexpr DWORD FORMAT_MESSAGE_ARGUMENT_ARRAY = 0x2000;

/// Formats a message: the text `source` (FROM_STRING), the text of number `message` in a module's message table
/// (FROM_HMODULE; null: the program), or the system's sentence for it (FROM_SYSTEM), with inserts from the list or the
/// array `arguments`. With ALLOCATE_BUFFER `buffer` is a pointer to a pointer, which receives memory that the caller
/// must release with LocalFree. The low byte of the flags is the width of a line: 0 keeps the line ends of the message,
/// 255 makes them blanks, and any other number wraps lines at it; `%n` always ends a line.
/// @return the units written without the terminator, or 0 with ERROR_INSUFFICIENT_BUFFER (`buffer` is unchanged),
///         ERROR_MORE_DATA (more than 65,536 units to allocate or to wrap), ERROR_OUTOFMEMORY,
///         ERROR_MR_MID_NOT_FOUND, ERROR_RESOURCE_LANG_NOT_FOUND, ERROR_RESOURCE_TYPE_NOT_FOUND,
///         ERROR_RESOURCE_DATA_NOT_FOUND, ERROR_INVALID_PARAMETER (also for inserts that were not given, and for a
///         message that ends in a lone percent sign)
DWORD FormatMessageW(DWORD flags, LPCVOID source, DWORD message, DWORD language, LPWSTR buffer, DWORD size,
                     va_list* arguments);
constexpr DWORD LANG_USER_DEFAULT = 0x400;

/// Memory that the caller must release with LocalFree, not zeroed. @return null with ERROR_OUTOFMEMORY
void* LocalAlloc(UINT flags, SIZE_T bytes);

/// Releases memory of LocalAlloc; null does nothing. @return null
void* LocalFree(void* block);

/// Writes at most `count` units. A text of exactly `count` units has no terminator; a longer one is cut and gives -1.
/// The format language is described in format/printf.h. @return the units written, or -1
int _vsnwprintf(WCHAR* buffer, SIZE_T count, const WCHAR* format, va_list arguments);
int _snwprintf(WCHAR* buffer, SIZE_T count, const WCHAR* format, ...);

// --- Modules ---

/// The path of a module's file (null: the program). `size` and the result count units. A longer path is cut and
/// terminated; the result is then `size`, with ERROR_INSUFFICIENT_BUFFER.
/// @return the units without the terminator, or 0 with ERROR_MOD_NOT_FOUND, ERROR_INSUFFICIENT_BUFFER (no buffer)
DWORD GetModuleFileNameW(HMODULE module, LPWSTR buffer, DWORD size);

/// Lists the modules of this process (its id, or 0) as they are now, the program first. The caller must close the
/// handle with CloseHandle.
/// @return the handle, or INVALID_HANDLE_VALUE with ERROR_INVALID_PARAMETER (flags), ERROR_NOT_SUPPORTED (another
/// process)
constexpr DWORD TH32CS_SNAPMODULE = 8;
constexpr DWORD TH32CS_SNAPMODULE32 = 16;
HANDLE CreateToolhelp32Snapshot(DWORD flags, DWORD process);

constexpr DWORD MAX_MODULE_NAME32 = 255;
struct MODULEENTRY32W {
    DWORD dwSize;  // of this record, set by the caller
    DWORD th32ModuleID;
    DWORD th32ProcessID;
    DWORD GlblcntUsage;
    DWORD ProccntUsage;
    BYTE* modBaseAddr;
    DWORD modBaseSize;
    HMODULE hModule;
    WCHAR szModule[MAX_MODULE_NAME32 + 1];
    WCHAR szExePath[4096];  // longer than published: a path on Linux has up to 4,095 bytes
};

/// Describes the first module of a list. Name and path are cut to the room of the record.
/// @return FALSE with ERROR_NO_MORE_FILES, ERROR_INVALID_PARAMETER (`dwSize`), ERROR_INVALID_HANDLE
BOOL Module32FirstW(HANDLE snapshot, MODULEENTRY32W* entry);

/// Describes the next module. After the last one: FALSE with ERROR_NO_MORE_FILES.
BOOL Module32NextW(HANDLE snapshot, MODULEENTRY32W* entry);

// --- Version blocks of files: PE files, and ELF files with compiled resources in the section `.rsrc` ---

/// The size of a file's version block, at most 65,535 bytes. `handle` may be null; it receives 0.
/// A name without a folder is that of a loaded module, if there is one.
/// @return 0 with ERROR_RESOURCE_DATA_NOT_FOUND (no module, or none with resources), ERROR_RESOURCE_TYPE_NOT_FOUND (no
///         block), ERROR_FILE_NOT_FOUND, another system error
DWORD GetFileVersionInfoSizeW(LPCWSTR path, DWORD* handle);

/// Copies a file's version block, cut to `size` bytes, and makes it safe for VerQueryValueW. The handle is ignored.
/// @return FALSE with the errors of GetFileVersionInfoSizeW
BOOL GetFileVersionInfoW(LPCWSTR path, DWORD handle, DWORD size, LPVOID data);

/// Finds a value in a block that GetFileVersionInfoW has filled: "\\" for the fixed numbers, else a path of keys.
/// `*value` points into the block; `*length` counts bytes, or for a text its units with the terminator.
/// @return FALSE with ERROR_RESOURCE_TYPE_NOT_FOUND or ERROR_INVALID_PARAMETER
BOOL VerQueryValueW(LPCVOID data, LPCWSTR query, LPVOID* value, UINT* length);

// --- Faults as exceptions (the operation itself is in tessmaru/linux/faults.h) ---

namespace platform {

/// States which type a translator throws; the last call counts. A fault that no handler would take as this type then
/// ends the process by its signal. Without a statement each handler counts as one that takes the fault.
void SetThrownType(_se_translator_function translator, const std::type_info& type);

}  // namespace platform

// --- The library's entry point ---
//
// Defined by the library, called by the platform: after the library's static initialisation, and before its static
// destruction.
constexpr DWORD DLL_PROCESS_DETACH = 0;
constexpr DWORD DLL_PROCESS_ATTACH = 1;
extern "C" BOOL WINAPI DllMain(HINSTANCE module, DWORD reason, LPVOID reserved);
