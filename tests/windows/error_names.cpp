// The names of error codes against the values that the system's own headers give them, checked by the compiler.
#include <windows.h>

#include <olectl.h>

#define NAME(value, name) static_assert(static_cast<DWORD>(name) == (value), #name);
#include "errors/hresult_names.def"
#include "errors/win32_error_names.def"
