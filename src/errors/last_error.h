// The platform's last failure as a code of the library.
#pragma once

#include "system.h"

/// The reason of this thread's last failed platform call, by the rule of HRESULT_FROM_WIN32.
inline LONG LastErrorCode()
{
    return HRESULT_FROM_WIN32(GetLastError());
}
