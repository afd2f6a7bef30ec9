// The platform types and functions that the interface of the library uses. On Windows they are the system's own. On
// Linux the library provides them, with the published names, fields and values; the functions are exported for callers.
// In C this header has what the functions of version_number.h use.
#pragma once

#ifdef _WIN32

#if defined(TESSMARU_STATIC)
#define TESSMARU_API
#elif defined(TESSMARU_BUILDING)
#define TESSMARU_API __declspec(dllexport)
#else
#define TESSMARU_API __declspec(dllimport)
#endif

#ifndef __cplusplus

#include <windows.h>

#include <oleauto.h>

#else

// comdef.h brings _com_error; the rest of the automation headers come with it.
#ifndef UNICODE
#error "UNICODE has to be defined: the message of a _com_error is wide text, in the library as in its callers"
#endif
#include <windows.h>

#include <comdef.h>

/// Called on a thread with the code and the record of its fault. (Declared here because the toolchain's eh.h, which has
/// this type, also declares functions that its libraries lack.)
using _se_translator_function = void(__cdecl*)(unsigned int code, EXCEPTION_POINTERS* info);

#ifdef __i386__
#include <unwind.h>

namespace platform {

/// On x86-32, each module has its own copy of the language's runtime. That copy can catch an exception of the library
/// only after it has walked a stack once.
inline const _Unwind_Reason_Code UnwinderReady =
    _Unwind_Backtrace([](_Unwind_Context*, void*) { return _URC_END_OF_STACK; }, nullptr);

}  // namespace platform
#endif

#endif

#else

#define TESSMARU_API __attribute__((visibility("default")))

#ifndef __cplusplus

typedef unsigned short* BSTR;

/* Ends an automation string; null is allowed. */
TESSMARU_API void SysFreeString(BSTR string);

/* The length of an automation string in units; 0 for null. */
TESSMARU_API unsigned int SysStringLen(BSTR string);

#else

#include <cstddef>
#include <cstdint>

// Integers keep their published width on every target: LONG and DWORD have 32 bits.
using BYTE = unsigned char;
using WORD = std::uint16_t;
using DWORD = std::uint32_t;
using UINT = unsigned int;
using INT = int;
using LONG = std::int32_t;
using ULONG = std::uint32_t;
using LONGLONG = std::int64_t;
using ULONGLONG = std::uint64_t;
using BOOL = int;
using WCHAR = unsigned short;
using HRESULT = std::int32_t;
using DWORD_PTR = std::uintptr_t;
using SIZE_T = std::size_t;

using PVOID = void*;
using LPVOID = void*;
using LPCVOID = const void*;
using LPDWORD = DWORD*;
using PLONG = LONG*;
using LPBYTE = BYTE*;
using LPSTR = char*;
using LPCSTR = const char*;
using LPWSTR = WCHAR*;
using LPCWSTR = const WCHAR*;

/// A platform object. Close it once, with CloseHandle. It does not survive `exec`.
using HANDLE = void*;

/// A loaded ELF object, by the address of its header.
using HINSTANCE = struct HINSTANCE__*;
using HMODULE = HINSTANCE;

/// An open key of the settings store.
using HKEY = struct HKEY__*;

/// An automation string: units with a terminator, and their length before the first unit.
using BSTR = WCHAR*;

constexpr BOOL FALSE = 0;
constexpr BOOL TRUE = 1;

inline const HANDLE INVALID_HANDLE_VALUE = reinterpret_cast<HANDLE>(~std::uintptr_t{0});

constexpr HRESULT S_OK = 0;
constexpr HRESULT S_FALSE = 1;
constexpr HRESULT E_NOTIMPL = static_cast<HRESULT>(0x80004001);
constexpr HRESULT E_NOINTERFACE = static_cast<HRESULT>(0x80004002);
constexpr HRESULT E_POINTER = static_cast<HRESULT>(0x80004003);
constexpr HRESULT E_FAIL = static_cast<HRESULT>(0x80004005);
constexpr HRESULT E_UNEXPECTED = static_cast<HRESULT>(0x8000FFFF);
constexpr HRESULT E_ACCESSDENIED = static_cast<HRESULT>(0x80070005);
constexpr HRESULT E_OUTOFMEMORY = static_cast<HRESULT>(0x8007000E);
constexpr HRESULT E_INVALIDARG = static_cast<HRESULT>(0x80070057);
constexpr HRESULT DISP_E_TYPEMISMATCH = static_cast<HRESULT>(0x80020005);
constexpr HRESULT DISP_E_BADVARTYPE = static_cast<HRESULT>(0x80020008);
constexpr HRESULT DISP_E_OVERFLOW = static_cast<HRESULT>(0x8002000A);
constexpr HRESULT DISP_E_BADINDEX = static_cast<HRESULT>(0x8002000B);
constexpr HRESULT DISP_E_ARRAYISLOCKED = static_cast<HRESULT>(0x8002000D);

constexpr bool SUCCEEDED(HRESULT code)
{
    return code >= 0;
}
constexpr bool FAILED(HRESULT code)
{
    return code < 0;
}

constexpr DWORD INFINITE = 0xFFFFFFFF;
constexpr DWORD WAIT_OBJECT_0 = 0;
constexpr DWORD WAIT_ABANDONED = 0x80;
constexpr DWORD WAIT_TIMEOUT = 0x102;
constexpr DWORD WAIT_FAILED = 0xFFFFFFFF;

constexpr DWORD ERROR_SUCCESS = 0;
constexpr DWORD NO_ERROR = 0;
constexpr DWORD ERROR_FILE_NOT_FOUND = 2;
constexpr DWORD ERROR_PATH_NOT_FOUND = 3;
constexpr DWORD ERROR_TOO_MANY_OPEN_FILES = 4;
constexpr DWORD ERROR_ACCESS_DENIED = 5;
constexpr DWORD ERROR_INVALID_HANDLE = 6;
constexpr DWORD ERROR_OUTOFMEMORY = 14;
constexpr DWORD ERROR_NO_MORE_FILES = 18;
constexpr DWORD ERROR_WRITE_PROTECT = 19;
constexpr DWORD ERROR_GEN_FAILURE = 31;
constexpr DWORD ERROR_SHARING_VIOLATION = 32;
constexpr DWORD ERROR_NOT_SUPPORTED = 50;
constexpr DWORD ERROR_BAD_NETPATH = 53;
constexpr DWORD ERROR_FILE_EXISTS = 80;
constexpr DWORD ERROR_INVALID_PARAMETER = 87;
constexpr DWORD ERROR_DISK_FULL = 112;
constexpr DWORD ERROR_INSUFFICIENT_BUFFER = 122;
constexpr DWORD ERROR_INVALID_NAME = 123;
constexpr DWORD ERROR_MOD_NOT_FOUND = 126;
constexpr DWORD ERROR_NEGATIVE_SEEK = 131;
constexpr DWORD ERROR_BAD_PATHNAME = 161;
constexpr DWORD ERROR_BUSY = 170;
constexpr DWORD ERROR_ALREADY_EXISTS = 183;
constexpr DWORD ERROR_BAD_EXE_FORMAT = 193;
constexpr DWORD ERROR_FILENAME_EXCED_RANGE = 206;
constexpr DWORD ERROR_MORE_DATA = 234;
constexpr DWORD ERROR_NOT_OWNER = 288;
constexpr DWORD ERROR_MR_MID_NOT_FOUND = 317;
constexpr DWORD ERROR_INVALID_FLAGS = 1004;
constexpr DWORD ERROR_KEY_DELETED = 1018;
constexpr DWORD ERROR_NO_UNICODE_TRANSLATION = 1113;
constexpr DWORD ERROR_IO_DEVICE = 1117;
constexpr DWORD ERROR_TOO_MANY_LINKS = 1142;
constexpr DWORD ERROR_UNKNOWN_REVISION = 1305;
constexpr DWORD ERROR_REVISION_MISMATCH = 1306;
constexpr DWORD ERROR_INVALID_ACL = 1336;
constexpr DWORD ERROR_INVALID_SID = 1337;
constexpr DWORD ERROR_ALLOTTED_SPACE_EXCEEDED = 1344;
constexpr DWORD ERROR_TIMEOUT = 1460;
constexpr DWORD ERROR_RESOURCE_DATA_NOT_FOUND = 1812;
constexpr DWORD ERROR_RESOURCE_TYPE_NOT_FOUND = 1813;
constexpr DWORD ERROR_RESOURCE_NAME_NOT_FOUND = 1814;
constexpr DWORD ERROR_RESOURCE_LANG_NOT_FOUND = 1815;
constexpr DWORD ERROR_CANT_RESOLVE_FILENAME = 1921;

/// The HRESULT of a system error. A value of zero or less, as a signed number, is returned unchanged.
constexpr HRESULT HRESULT_FROM_WIN32(DWORD error)
{
    const auto code = static_cast<HRESULT>(error);
    return code <= 0 ? code : static_cast<HRESULT>((error & 0xFFFF) | 0x80070000);
}

struct GUID {
    std::uint32_t Data1;
    std::uint16_t Data2;
    std::uint16_t Data3;
    std::uint8_t Data4[8];
};
using IID = GUID;
using REFIID = const IID&;

struct ACL {
    BYTE AclRevision;
    BYTE Sbz1;
    WORD AclSize;
    WORD AceCount;
    WORD Sbz2;
};
using PACL = ACL*;
using PSID = void*;
using PSECURITY_DESCRIPTOR = void*;

struct SECURITY_ATTRIBUTES {
    DWORD nLength;
    LPVOID lpSecurityDescriptor;
    BOOL bInheritHandle;
};
using LPSECURITY_ATTRIBUTES = SECURITY_ATTRIBUTES*;

/// A lock of one process, recursive and owned by a thread. Only the platform uses the fields. In the child of a `fork`
/// every section is free.
struct CRITICAL_SECTION {
    std::uint32_t Word;
    std::uint32_t RecursionCount;
    std::uintptr_t OwningThread;
};
using LPCRITICAL_SECTION = CRITICAL_SECTION*;

/// The numbers of a module's version block. Each version is four parts of 16 bits, the most significant first.
struct VS_FIXEDFILEINFO {
    DWORD dwSignature;  // 0xFEEF04BD
    DWORD dwStrucVersion;
    DWORD dwFileVersionMS;
    DWORD dwFileVersionLS;
    DWORD dwProductVersionMS;
    DWORD dwProductVersionLS;
    DWORD dwFileFlagsMask;
    DWORD dwFileFlags;
    DWORD dwFileOS;
    DWORD dwFileType;
    DWORD dwFileSubtype;
    DWORD dwFileDateMS;
    DWORD dwFileDateLS;
};

extern "C" {

/// The reason of this thread's last failed platform call. A call that succeeds need not reset it.
TESSMARU_API DWORD GetLastError();

/// Sets what GetLastError of this thread returns.
TESSMARU_API void SetLastError(DWORD error);

/// Opens the mutex of this name, or makes it. The machine has one mutex of a name from the first handle to the last, no
/// matter how the processes with handles end. A null or empty name makes a mutex of this process only. Names compare
/// exactly; the prefixes "Global\" and "Local\" have no special meaning.
///
/// @param attributes   the access of other accounts, by the descriptor; null: by the umask.
/// @param initialOwner non-zero: if this call makes the mutex, the calling thread owns it.
/// @param name         at most 1900 units.
/// @return a handle; GetLastError is 0 for a new mutex and ERROR_ALREADY_EXISTS for an existing one, which the caller
///         does not own. Or null with the reason in GetLastError.
/// @note After `fork` parent and child each have their own handle with the same value. The parent's threads still own
///       the mutexes that they owned.
TESSMARU_API HANDLE CreateMutexW(SECURITY_ATTRIBUTES* attributes, BOOL initialOwner, LPCWSTR name);

/// Takes a mutex for the calling thread. A thread may take it several times.
///
/// @param milliseconds how long to wait; 0: does not wait; INFINITE: without a limit.
/// @return WAIT_OBJECT_0; WAIT_ABANDONED if the mutex was obtained and its last owner had ended without releasing it;
///         WAIT_TIMEOUT; or WAIT_FAILED with the reason in GetLastError.
TESSMARU_API DWORD WaitForSingleObject(HANDLE handle, DWORD milliseconds);

/// Undoes one successful wait. @return FALSE with ERROR_NOT_OWNER if the calling thread is not the owner.
TESSMARU_API BOOL ReleaseMutex(HANDLE mutex);

/// Closes a handle of any kind. @return FALSE with ERROR_INVALID_HANDLE for one that is not open.
TESSMARU_API BOOL CloseHandle(HANDLE handle);

/// The module of this file name (with or without its directory), or the program itself for null. The handle need not be
/// closed.
/// @return null with ERROR_MOD_NOT_FOUND if no such module is loaded.
TESSMARU_API HMODULE GetModuleHandleW(LPCWSTR name);

}  // extern "C"

#include "tessmaru/linux/automation.h"
#include "tessmaru/linux/com.h"
#include "tessmaru/linux/faults.h"
#include "tessmaru/linux/variant_class.h"

#endif

#endif
