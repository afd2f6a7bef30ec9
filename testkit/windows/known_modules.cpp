// Modules that tests name, on Windows.
#include "testkit/known_modules.h"

namespace testkit {

HMODULE LibraryModule()
{
    return GetModuleHandleW(L"tessmarU.dll");
}

HMODULE SystemModule()
{
    return GetModuleHandleW(L"kernel32.dll");
}

}  // namespace testkit
