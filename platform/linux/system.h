// The platform operations that the library stands on, beside those that platform.h exports. Each keeps
// its published contract as far as the library relies on it: results, GetLastError codes, limits,
// ownership. None of them throws; what cannot be had for want of memory fails with ERROR_OUTOFMEMORY.
#pragma once

#include "tessmaru/platform.h"

#include <cstdarg>

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

/// Milliseconds of wall time since the process started, in the low 32 bits. The child of a `fork` goes on with its
/// parent's count.
LONG Clock();

}  // namespace platform

// Registry, read only. Every call gives its result directly: 0 or a system error.
using LSTATUS = LONG;
inline const HKEY HKEY_LOCAL_MACHINE = reinterpret_cast<HKEY>(std::uintptr_t{0x80000002});
inline const HKEY HKEY_USERS = reinterpret_cast<HKEY>(std::uintptr_t{0x80000003});
constexpr DWORD KEY_QUERY_VALUE = 1;
constexpr DWORD KEY_READ = 0x20019;
constexpr DWORD REG_NONE = 0;
constexpr DWORD REG_SZ = 1;
constexpr DWORD REG_BINARY = 3;
constexpr DWORD REG_DWORD = 4;
LSTATUS RegOpenKeyExW(HKEY key, LPCWSTR path, DWORD options, DWORD access, HKEY* opened);
LSTATUS RegQueryValueExW(HKEY key, LPCWSTR name, DWORD* reserved, DWORD* type, BYTE* data, DWORD* bytes);
LSTATUS RegCloseKey(HKEY key);

// Files.
constexpr DWORD GENERIC_READ = 0x80000000;
constexpr DWORD GENERIC_WRITE = 0x40000000;
constexpr DWORD GENERIC_ALL = 0x10000000;
constexpr DWORD WRITE_DAC = 0x40000;
constexpr DWORD WRITE_OWNER = 0x80000;
constexpr DWORD FILE_SHARE_READ = 1;
constexpr DWORD FILE_SHARE_WRITE = 2;
constexpr DWORD CREATE_NEW = 1;
constexpr DWORD CREATE_ALWAYS = 2;
constexpr DWORD OPEN_EXISTING = 3;
constexpr DWORD OPEN_ALWAYS = 4;
constexpr DWORD TRUNCATE_EXISTING = 5;
constexpr DWORD FILE_ATTRIBUTE_DIRECTORY = 0x10;
constexpr DWORD FILE_ATTRIBUTE_NORMAL = 0x80;
constexpr DWORD FILE_BEGIN = 0;
constexpr DWORD FILE_CURRENT = 1;
constexpr DWORD FILE_END = 2;
constexpr DWORD INVALID_SET_FILE_POINTER = 0xFFFFFFFF;
constexpr DWORD MAX_PATH = 260;

struct FILETIME {
    DWORD dwLowDateTime;
    DWORD dwHighDateTime;
};

struct WIN32_FIND_DATAW {
    DWORD dwFileAttributes;
    FILETIME ftCreationTime;
    FILETIME ftLastAccessTime;
    FILETIME ftLastWriteTime;
    DWORD nFileSizeHigh;
    DWORD nFileSizeLow;
    DWORD dwReserved0;
    DWORD dwReserved1;
    WCHAR cFileName[MAX_PATH];
    WCHAR cAlternateFileName[14];
};

HANDLE CreateFileW(LPCWSTR path, DWORD access, DWORD share, SECURITY_ATTRIBUTES* attributes, DWORD disposition,
                   DWORD flags, HANDLE model);
DWORD SetFilePointer(HANDLE file, LONG distance, LONG* distanceHigh, DWORD method);
BOOL ReadFile(HANDLE file, LPVOID data, DWORD bytes, DWORD* read, void* overlapped);
BOOL SetEndOfFile(HANDLE file);
BOOL WriteFile(HANDLE file, LPCVOID data, DWORD bytes, DWORD* written, void* overlapped);
HANDLE FindFirstFileW(LPCWSTR path, WIN32_FIND_DATAW* found);
BOOL FindClose(HANDLE search);
BOOL DeleteFileW(LPCWSTR path);
BOOL MoveFileW(LPCWSTR from, LPCWSTR to);

// Critical sections.
void InitializeCriticalSection(CRITICAL_SECTION* section);
void EnterCriticalSection(CRITICAL_SECTION* section);
void LeaveCriticalSection(CRITICAL_SECTION* section);
void DeleteCriticalSection(CRITICAL_SECTION* section);

// Security records, in their published layouts.
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

BOOL AllocateAndInitializeSid(SID_IDENTIFIER_AUTHORITY* authority, BYTE count, DWORD sub0, DWORD sub1, DWORD sub2,
                              DWORD sub3, DWORD sub4, DWORD sub5, DWORD sub6, DWORD sub7, PSID* sid);
DWORD GetLengthSid(PSID sid);
PVOID FreeSid(PSID sid);
BOOL InitializeAcl(ACL* acl, DWORD bytes, DWORD revision);
BOOL AddAccessDeniedAce(ACL* acl, DWORD revision, DWORD mask, PSID sid);
BOOL AddAccessAllowedAce(ACL* acl, DWORD revision, DWORD mask, PSID sid);
BOOL InitializeSecurityDescriptor(PSECURITY_DESCRIPTOR descriptor, DWORD revision);
BOOL SetSecurityDescriptorDacl(PSECURITY_DESCRIPTOR descriptor, BOOL present, ACL* dacl, BOOL defaulted);
HANDLE GetProcessHeap();
LPVOID HeapAlloc(HANDLE heap, DWORD flags, SIZE_T bytes);
BOOL HeapFree(HANDLE heap, DWORD flags, LPVOID block);

// Time, identity, debug output.
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
void GetLocalTime(SYSTEMTIME* time);
/// `size` and the result count units with the terminator; a size of 0 asks for the room that is needed.
int GetDateFormatW(LCID locale, DWORD flags, const SYSTEMTIME* time, LPCWSTR picture, LPWSTR buffer, int size);
int GetTimeFormatW(LCID locale, DWORD flags, const SYSTEMTIME* time, LPCWSTR picture, LPWSTR buffer, int size);
DWORD GetCurrentProcessId();
DWORD GetCurrentThreadId();
void OutputDebugStringW(LPCWSTR text);

// Text conversion.
constexpr UINT CP_ACP = 0;
constexpr UINT CP_UTF8 = 65001;
constexpr DWORD MB_ERR_INVALID_CHARS = 8;
int WideCharToMultiByte(UINT codePage, DWORD flags, LPCWSTR wide, int wideUnits, LPSTR narrow, int narrowBytes,
                        LPCSTR defaultChar, BOOL* usedDefault);
int MultiByteToWideChar(UINT codePage, DWORD flags, LPCSTR narrow, int narrowBytes, LPWSTR wide, int wideUnits);

// Strings of a module, messages, counted formatting.
int LoadStringW(HINSTANCE module, UINT row, LPWSTR buffer, int size);
constexpr DWORD FORMAT_MESSAGE_ALLOCATE_BUFFER = 0x100;
constexpr DWORD FORMAT_MESSAGE_IGNORE_INSERTS = 0x200;
constexpr DWORD FORMAT_MESSAGE_FROM_STRING = 0x400;
constexpr DWORD FORMAT_MESSAGE_FROM_HMODULE = 0x800;
constexpr DWORD FORMAT_MESSAGE_FROM_SYSTEM = 0x1000;
constexpr DWORD FORMAT_MESSAGE_ARGUMENT_ARRAY = 0x2000;
DWORD FormatMessageW(DWORD flags, LPCVOID source, DWORD message, DWORD language, LPWSTR buffer, DWORD size,
                     va_list* arguments);
constexpr DWORD LANG_USER_DEFAULT = 0x400;
/// Memory of the layer's own, or null; null may be freed. @return null.
void* LocalAlloc(UINT flags, SIZE_T bytes);
void* LocalFree(void* block);
/// At most `count` units; a text of exactly `count` has no terminator, a longer one gives -1.
int _vsnwprintf(WCHAR* buffer, SIZE_T count, const WCHAR* format, va_list arguments);
int _snwprintf(WCHAR* buffer, SIZE_T count, const WCHAR* format, ...);

// Modules.
/// `size` and the result count units. A longer path is cut, has its terminator, and the result is `size`, with
/// ERROR_INSUFFICIENT_BUFFER; 0 with ERROR_MOD_NOT_FOUND for what is no module.
DWORD GetModuleFileNameW(HMODULE module, LPWSTR buffer, DWORD size);

/// The modules of this process (its id, or 0) as they are now, the program first. No other process can be looked at.
/// @return a handle to be closed, or INVALID_HANDLE_VALUE.
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
    WCHAR szExePath[MAX_PATH];
};
/// @return FALSE with ERROR_NO_MORE_FILES behind the last module.
BOOL Module32FirstW(HANDLE snapshot, MODULEENTRY32W* entry);
BOOL Module32NextW(HANDLE snapshot, MODULEENTRY32W* entry);

// Version blocks of files: PE files, and ELF files with compiled resources in a section `.rsrc`.
/// @return the room that the block needs, at most 65,535 bytes; 0 without a block.
DWORD GetFileVersionInfoSizeW(LPCWSTR path, DWORD* handle);
/// Reads as much of the block as there is room for.
BOOL GetFileVersionInfoW(LPCWSTR path, DWORD handle, DWORD size, LPVOID data);
/// `data` is a block as GetFileVersionInfoW gives it. `value` points into it; `length` counts bytes, or for a text its
/// units with the terminator.
BOOL VerQueryValueW(LPCVOID data, LPCWSTR query, LPVOID* value, UINT* length);

// The library's entry point, called behind its static initialisation and before its static destruction.
constexpr DWORD DLL_PROCESS_DETACH = 0;
constexpr DWORD DLL_PROCESS_ATTACH = 1;
extern "C" BOOL WINAPI DllMain(HINSTANCE module, DWORD reason, LPVOID reserved);
