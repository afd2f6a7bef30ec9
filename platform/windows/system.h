// The platform operations that the library stands on: the system's own.
#pragma once

#include "tessmaru/platform.h"

#include <cstdarg>
#include <ctime>
#include <cwchar>
#include <typeinfo>

#include <tlhelp32.h>

namespace platform {

static_assert(sizeof(WCHAR) == sizeof(unsigned short));

/// The library's 16-bit text as the platform's wide text.
inline LPCWSTR Wide(const unsigned short* text)
{
    return reinterpret_cast<LPCWSTR>(text);
}
inline LPWSTR Wide(unsigned short* text)
{
    return reinterpret_cast<LPWSTR>(text);
}

/// Milliseconds of wall time since the process started.
inline LONG Clock()
{
    return std::clock();
}

HANDLE OpenForAppending(LPCWSTR path, SECURITY_ATTRIBUTES* attributes);
enum class AppendResult { whole, nothing, part };
AppendResult AppendToFile(HANDLE file, LPCVOID data, DWORD bytes);
bool ReadEndOfFile(HANDLE file, void* buffer, DWORD bytes, ULONGLONG* size);
enum class FileState { current, moved, lost };
FileState StateOfFile(HANDLE file, LPCWSTR path);
bool MoveFileAside(LPCWSTR from, LPCWSTR to);

/// Has nothing to do: a handle cannot be closed by its number alone.
inline void RestoreMutex(HANDLE) {}

/// Has nothing to do: the system leaves no part of a write.
inline void AbandonAtRelease(HANDLE) {}

/// Has nothing to do: the search for a handler starts when the translator throws.
inline void SetThrownType(_se_translator_function, const std::type_info&) {}

}  // namespace platform

/// Sets the translator of the calling thread, or none for null, and gives the one that it had before. Called at each
/// fault of the thread; what it throws starts at the instruction that failed. One that returns ends the process.
extern "C" _se_translator_function _set_se_translator(_se_translator_function translator);
