// Names of error codes: the compiler checks them against the values in the system's own headers.
#include <windows.h>

#include <olectl.h>

#define NAME(value, name) static_assert(static_cast<DWORD>(name) == (value), #name);
#include "errors/hresult_names.def"
#include "errors/win32_error_names.def"
