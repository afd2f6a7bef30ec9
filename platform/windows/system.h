// The platform operations that the library uses: the system's own. platform/linux/system.h documents the contract.
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

/// Sets the translator of the calling thread (null: none) and returns the former one. The translator is called at each
/// fault of the thread. An exception that it throws starts at the instruction that failed. If it returns, the process
/// ends.
extern "C" _se_translator_function _set_se_translator(_se_translator_function translator);
