// The platform operations that the library stands on: the system's own.
#pragma once

#include "tessmaru/platform.h"

#include <cstdarg>
#include <ctime>
#include <cwchar>

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

}  // namespace platform

/// Sets the translator of the calling thread, or none for null, and gives the one that it had before. Called at each
/// fault of the thread; what it throws starts at the instruction that failed. One that returns ends the process.
extern "C" _se_translator_function _set_se_translator(_se_translator_function translator);
